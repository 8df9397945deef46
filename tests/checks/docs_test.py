"""Runs what the pages show, and follows what they point to.

A page that has gone wrong misleads longer than a test that has.
"""
import argparse
import itertools
import json
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
KERNEL = ROOT / "wavedata/bridge/kernel/src"
PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
FORMAT = ROOT / "docs/file-format.md"
OPTIONS = argparse.Namespace()


def block_of(page, language):
    """The page's one program in a language."""
    blocks = re.findall(rf"^```{language}\n(.*?)^```", page.read_text(), re.S | re.M)
    assert len(blocks) == 1, f"{page.name} has {len(blocks)} blocks of {language}"
    return blocks[0]


def run(*command, **options):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                            **options)
    if result.returncode != 0:
        raise AssertionError(f"{command} failed: {result.stdout}{result.stderr}")
    return result.stdout


def dump_of(path):
    lines = [json.loads(line) for line in run(OPTIONS.wdb, "dump", "--json", path).splitlines()]
    bucket, events = None, []
    for line in lines:
        if "bucket" in line:
            bucket = line["bucket"]
        else:
            events.append((bucket, line["time"], line["address"], bytes.fromhex(line["values"])))
    return events


class Pages(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def record_small(self):
        """The recording that the README's program makes."""
        source, program = self.folder / "record.cpp", self.folder / "record"
        source.write_text(block_of(ROOT / "README.md", "cpp"))
        run(OPTIONS.compiler, "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
            "-I", ROOT / "include", source, "-o", program)
        recording = self.folder / "small.wdb"
        run(program, OPTIONS.library, recording, cwd=self.folder)
        return recording

    def record_large(self, database="buckets"):
        """Many blocks, a second node or leaf, values across bucket ends, texts, two empty buckets."""
        wide = 8192  # bits: 2048 bytes of word pairs
        lines = ["$timescale 10 ps $end", "$scope module top $end", "$var wire 1 ! clk $end",
                 f"$var wire {wide} # wide [{wide - 1}:0] $end", "$var string 1 % text $end",
                 f"$var wire {2 * wide} & idle $end", "$upscope $end", "$enddefinitions $end"]
        for time in range(48_000):
            lines += [f"#{time}", f"{time % 2}!"]
            if time % 900 == 0:
                lines += [f"b{time * 2654435761 ** 40:b}"[:wide] + " #", f"stext_{time} %"]
        dump, recording = self.folder / "large.vcd", self.folder / "large.wdb"
        dump.write_text("\n".join(lines) + "\n")
        run(OPTIONS.wdb, "import", "--database", database, dump, recording)
        return recording

    def reader(self):
        namespace = {"__name__": "wdb_reader"}
        exec(compile(block_of(FORMAT, "python"), FORMAT.name, "exec"), namespace)
        return namespace["Recording"]

    def test_small_recording_is_what_its_tables_say(self):
        data = self.record_small().read_bytes()
        self.check_table(data, "file")
        for offset, size in ((4032, 10240), (4131, 1024)):
            image = zlib.decompressobj().decompress(data[offset:])
            self.assertEqual(len(image), size)
            self.check_table(image, f"block at {offset}")

    def check_table(self, data, name):
        table = FORMAT.read_text().split(f"<!-- bytes of the {name} -->\n")[1].split("\n\n")[0]
        at = 0
        for row in table.splitlines()[2:]:
            offset, size, shown, what = (cell.strip() for cell in row.strip("|").split("|"))
            self.assertEqual(int(offset), at, row)
            at += int(size)
            if shown in ("zlib", "differs"):
                continue
            text = shown.strip("`")
            expected = text.strip('"').encode() if '"' in text else bytes.fromhex(text)
            self.assertEqual(data[int(offset):at], expected.ljust(int(size), b"\0"), row)
            numbers = re.findall(r"\d+", what)  # what the words call the bytes
            if numbers and shown and '"' not in text:
                self.assertIn(str(int.from_bytes(expected, "little")), numbers, row)
        self.assertEqual(at, len(data))

    def test_reader_reads_what_is_recorded(self):
        small = self.reader()(self.record_small().read_bytes())
        printed = "".join(f"string {number} {text.decode()}\n" for number, text in small.strings())
        printed += "".join(f"event {b} {t} {a} {v.hex()}\n" for b, t, a, v in small.events())
        self.assertEqual(printed, block_of(FORMAT, "text"))
        by_type = {}
        for database, kind in (("single", 1000), ("btree", 1002), ("buckets", 1001)):
            path = self.record_large(database)
            large = self.reader()(path.read_bytes())
            by_type[kind] = sorted(event[1:] for event in large.events())
            self.assertTrue([*large.events()] == dump_of(path), "other events")
            info = json.loads(run(OPTIONS.wdb, "info", "--json", path))
            self.assertEqual(info["events"]["type"], kind)
            self.assertEqual(info["events"].get("treeDepth"), 2 if database == "btree" else None)
        self.assertTrue(by_type[1002] == by_type[1001], "other events in the tree")
        self.assertGreater(info["events"]["blocks"], 110)
        self.assertGreater(info["events"]["bucketsUsed"], 1)
        strings = [(1 + i, f"text_{900 * i}".encode()) for i in range(info["strings"]["count"])]
        self.assertEqual(len(strings), 54)
        self.assertEqual(list(large.strings()), strings)

    def test_reader_survives_cuts_and_damage(self):
        data = self.record_large().read_bytes()
        reader = self.reader()
        buckets = {}
        for event in reader(data).events():
            buckets.setdefault(event[0], []).append(event)
        for length in (0, 63, 64, 100, 300, *range(5000, len(data), len(data) // 12)):
            try:
                cut = reader(data[:length])
            except ValueError:
                self.assertLess(length, 64)
                continue
            seen = {}
            for event in cut.events():
                seen.setdefault(event[0], []).append(event)
            for bucket, events in seen.items():
                self.assertTrue(events == buckets[bucket][:len(events)], f"cut at {length}")
        table, = struct.unpack_from("<q", data, reader(data).sections["WDB.Event", 1][0] + 32)
        node = data[table:table + 8]  # the first of two, which is made to name itself
        start, = struct.unpack("<q", node)
        looped = reader(data[:start] + node + data[start + 8:]).events()
        first = [event for event in itertools.islice(looped, 100_000) if event[0] == 0]
        self.assertTrue(first == buckets[0][:len(first)], "went through a node twice")
        self.assertLess(len(first), len(buckets[0]))
        small = self.record_small().read_bytes()
        for offset in range(24, len(small) - 8, 5):
            for value in (-1, 1 << 20, offset):
                damaged = reader(small[:offset] + struct.pack("<q", value) + small[offset + 8:])
                found = [*damaged.events(), *damaged.strings()]
                self.assertLess(len(found), 10_000, f"at {offset}")

    def test_description_is_read_by_its_schema(self):
        recording = self.reader()(self.record_large().read_bytes())
        offset, size = recording.sections["Pellon DBG", 1]
        (self.folder / "torq.dbg").write_bytes(recording.data[offset:offset + size])
        command = block_of(ROOT / "docs/design-description.md", "sh")
        command = command.replace("flatc", OPTIONS.flatc, 1)
        run(*command.replace("description/", f"{ROOT}/description/").split(), cwd=self.folder)
        tables = json.loads((self.folder / "torq.json").read_text())
        ends, text = tables["name_ends"], bytes(tables["name_text"])
        names = [text[start:end].decode() for start, end in zip([0, *ends], ends)]
        found = [(names[o["name"]], o["width"], o["size"], o["address"]) for o in tables["objects"]]
        self.assertEqual(found[:2], [("clk", 1, 8, 0), ("wide", 8192, 2048, 8)])

    def test_links_and_paths_lead_somewhere(self):
        for page in PAGES:
            prose = re.sub(r"^```.*?^```", "", page.read_text(), flags=re.S | re.M)
            links = re.findall(r"\[([^\]]+)\]\(([^)]+)\)", prose)
            for label, target in links + re.findall(r"^\[(\w+)\]: (\S+)$", prose, re.M):
                with self.subTest(page=page.name, target=target):
                    self.follow(page, label, target)
            for path in re.findall(r"`([\w.]+/[\w./-]+)`", prose):
                if not path.startswith(("build/", "torq.dir/")):
                    with self.subTest(page=page.name, path=path):
                        self.assertTrue(any((top / path).exists() for top in (ROOT, KERNEL)))

    def follow(self, page, label, target):
        file, _, anchor = target.partition("#")
        path = page.parent / file if file else page
        self.assertTrue(path.exists(), "no such file")
        if anchor:
            titles = re.findall(r"^#+ (.*)$", path.read_text(), re.M)
            anchors = [re.sub(r"[^\w -]", "", t).lower().replace(" ", "-") for t in titles]
            self.assertIn(anchor, anchors)
        for function in re.findall(r"(\w+)\(\)", label):
            self.assertRegex(path.read_text(), rf"\b{function}\(")

    def test_lines_are_short(self):
        for page in PAGES:
            for number, line in enumerate(page.read_text().splitlines(), 1):
                self.assertLessEqual(len(line), 110, f"{page.name}:{number}")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for option in ("compiler", "library", "wdb", "flatc"):
        parser.add_argument(f"--{option}", required=True)
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + rest)
