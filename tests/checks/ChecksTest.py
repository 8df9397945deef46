"""Shows that each check refuses a bad tree and accepts a good one.

A check that never fails protects nothing, and nobody would notice.
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"
COMPILER = os.environ.get("CXX", "c++")
KERNEL = "wavedata/bridge/kernel/src/"


class Tree(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.root)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def run_check(self, name, *arguments):
        result = subprocess.run([sys.executable, SCRIPTS / name, *arguments], capture_output=True,
                                text=True)
        self.assertEqual(result.stderr, "")
        return result.returncode, result.stdout

    def expect_refusal(self, expected, name, *arguments):
        status, output = self.run_check(name, *arguments)
        self.assertEqual(status, 1)
        self.assertIn(expected, output)


class LayersTest(Tree):
    GOOD = {
        "include/korvel/Api.h": "#include <string>\n#include <boost/shared_ptr.hpp>\n",
        KERNEL + "support/Names.h": '#include "korvel/Api.h"\n',
        KERNEL + "container/Store.h": '#include "support/Names.h"\n#include "container/Key.h"\n',
        KERNEL + "container/Key.h": "#include <zlib.h>\n",
        KERNEL + "events/Event.cpp": '#  include "container/Store.h"\n',
        "description/Names.h": '#include "Names_generated.h"\n',
        "tools/wdb/DumpVerb.cpp": '#include "events/Event.cpp"\n#include "description/Names.h"\n',
        "tests/events/EventTest.cpp": '#include "events/Event.cpp"\n',
    }
    BAD = [  # file, line that is added to the good tree
        (KERNEL + "support/Names.h", '#include "container/Key.h"'),
        (KERNEL + "container/Store.h", '#include "events/Event.cpp"'),
        (KERNEL + "container/Store.h", "#include <events/Event.cpp>"),
        (KERNEL + "container/Store.h", '#include "../support/Names.h"'),
        (KERNEL + "container/Store.h", '#include "NoSuchFile.h"'),
        (KERNEL + "container/Store.h", "#include STORE_HEADER"),
        (KERNEL + "container/Store.h", '#include "description/Names.h"'),
        (KERNEL + "writers/Writer.h", '#include "readers/Reader.h"'),
        (KERNEL + "readers/Reader.h", '#include "writers/Writer.h"'),
        (KERNEL + "events/Event.cpp", '#include "legacy/Old.h"'),
        (KERNEL + "events/Event.cpp", '#include "tests/events/EventTest.cpp"'),
        (KERNEL + "kernel_bridge.cpp", "int lies_in_no_layer;"),
        ("include/korvel/Api.h", '#include "support/Names.h"'),
        ("include/korvel/Api.h", "#include <fmt/format.h>"),
        ("description/Names.h", '#include "korvel/Api.h"'),
        ("tools/wdb/ImportVerb.cpp", '#include "events/Event.cpp"'),
        ("tools/wdb/DumpVerb.cpp", '#include "support/Names.h"'),
        ("examples/record.cpp", '#include "container/Key.h"'),
    ]

    def write_good_tree(self):
        for name in ("writers/Writer.h", "readers/Reader.h", "legacy/Old.h"):
            self.write(KERNEL + name, "")
        for name, text in self.GOOD.items():
            self.write(name, text)

    def test_accepts_the_arrows(self):
        self.write_good_tree()
        self.assertEqual(self.run_check("check_layers", "--root", self.root), (0, ""))

    def test_refuses_what_points_against_them(self):
        for name, line in self.BAD:
            with self.subTest(file=name, line=line):
                self.write_good_tree()
                path = self.root / name
                before = path.read_text(encoding="utf-8") if path.exists() else None
                self.write(name, (before or "") + line + "\n")
                self.expect_refusal(name, "check_layers", "--root", self.root)
                path.unlink()

    def test_refuses_an_empty_tree(self):
        self.expect_refusal("holds no sources", "check_layers", "--root", self.root)


class BuiltFilesTest(Tree):
    def test_names_the_file_that_nothing_builds(self):
        self.write("tests/a/BuiltTest.cpp", "")
        commands = [{"directory": str(self.root / "build"), "file": "../tests/a/BuiltTest.cpp"}]
        self.write("build/compile_commands.json", json.dumps(commands))
        arguments = ["check_built_files", "--root", self.root, "--build", self.root / "build"]
        self.assertEqual(self.run_check(*arguments, "tests"), (0, ""))
        self.expect_refusal("bench: no such folder", *arguments, "tests", "bench")
        self.write("tests/a/LostTest.cpp", "")
        self.expect_refusal("tests/a/LostTest.cpp: no target", *arguments, "tests")


class ExportsTest(Tree):
    def test_names_symbols_too_many_and_too_few(self):
        self.write("a.cpp", 'extern "C" void wanted() {}\nnamespace N { void leaked(int) {} }\n')
        self.write("list.txt", "missing\nwanted\n")
        library = self.root / "a.so"
        subprocess.run([COMPILER, "-shared", "-fPIC", "-o", library, self.root / "a.cpp"], check=True)
        arguments = ["check_exports", library, self.root / "list.txt"]
        self.expect_refusal("not in the list: N::leaked(int)\nin the list, but not exported: missing",
                            *arguments)
        self.assertEqual(self.run_check(*arguments, "--update"), (0, ""))
        self.assertEqual(self.run_check(*arguments), (0, ""))


class HeadersTest(Tree):
    def test_refuses_headers_that_do_not_stand_alone(self):
        self.write("include/korvel/Good.h", "#pragma once\n#include <string>\n"
                                            "inline std::string good() { return {}; }\n")
        arguments = ["check_headers", "--root", self.root, "--compiler", COMPILER]
        self.assertEqual(self.run_check(*arguments), (0, ""))
        for text in ("#pragma once\nstd::string f();\n",  # leans on another include
                     "struct Unguarded {};\n",
                     "#pragma once\n#include <concepts>\ntemplate <std::integral T> T f();\n",
                     "#pragma once\n#ifdef __cplusplus\n#endif\nnamespace N {}\n"):
            with self.subTest(text=text):
                self.write("include/korvel/Bad.h", text)
                self.expect_refusal("korvel/Bad.h does not stand alone", *arguments)


class BenchmarkTableTest(Tree):
    def test_compares_medians_of_equal_arguments(self):
        def run(name, rate, **extra):
            return {"run_name": name + "/repeats:3", "run_type": "iteration", **extra,
                    "items_per_second": rate}
        runs = [run("trace/addresses:8", rate, bytes=3) for rate in (1e6, 2e6, 9e6)]
        runs += [run("traceCopyOnly/addresses:8", 8e6), run("traceCopyOnly/addresses:9", 1e6),
                 run("traceBroken/addresses:8", 0, error_occurred=True, error_message="lost")]
        self.write("bench_a.json", json.dumps({"benchmarks": runs}))
        self.write("measured.tsv", "wdb import\t2\t1\t1\t2048\t4000000\t1000000\n"
                                   "vcd2fst\t4\t1\t1\t8192\t4000000\t3000000\n")
        status, table = self.run_check("lib/bench_table.py", self.root)
        self.assertEqual(status, 0)
        for row in ("| trace | addresses:8 | 500 | 4.00 CopyOnly (125), **Broken failed: lost** "
                    "| bytes 3 |",
                    "| traceCopyOnly | addresses:9 | 1,000 |  |  |",
                    "| vcd2fst | 1.0 | 2.00 | 8.0 | 3.00 | 0.50 | 1.00 | 4.00 | 3.00 |"):
            self.assertIn(row, table)


if __name__ == "__main__":
    unittest.main()
