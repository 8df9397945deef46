# shellcheck shell=bash disable=SC2034
# Shared by the scripts of this folder; sourced, never run. Changes to the project's folder.

cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit

# A clone in another folder finds what an earlier one compiled.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=true

# Debian packages, by what they are needed for.
BUILD_PACKAGES=(g++ cmake ninja-build ccache zlib1g-dev libdeflate-dev
    libboost-dev libboost-filesystem-dev libboost-thread-dev
    libcli11-dev libfmt-dev nlohmann-json3-dev
    libflatbuffers-dev flatbuffers-compiler)
SIMULATION_PACKAGES=(iverilog)
TEST_PACKAGES=(libgtest-dev libgmock-dev libbenchmark-dev python3 binutils)
FORMAT_PACKAGES=(git clang-format-14)
BENCHMARK_PACKAGES=(libbenchmark-dev python3 time gtkwave verilator)

say() {
    printf '\n== %s\n' "$*"
}

# Shows a command as a user would type it, with what is put behind it.
show_line() {
    local word line='' behind=$1
    shift
    for word in "$@"; do
        case $word in
            *[!A-Za-z0-9_./=+:,@-]*) line+=" '$word'" ;;
            *) line+=" $word" ;;
        esac
    done
    printf '\n$%s%s\n' "$line" "$behind"
}

# Shows a command, then runs it.
show() {
    show_line '' "$@"
    "$@"
}

# show_end LINES COMMAND...: the same with the last lines of its output alone.
show_end() {
    local lines=$1
    shift
    show_line " | tail -n $lines" "$@"
    "$@" | tail -n "$lines"
}

die() {
    printf '%s: %s\n' "$0" "$*" >&2
    exit 1
}

# Runs a command that has nothing to say unless it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    [ $status -eq 0 ] || cat "$log" >&2
    rm -f "$log"
    return $status
}

# Installs those of the named Debian packages that are missing. Touches no network when none is.
need_packages() {
    local package missing=()
    command -v dpkg-query >/dev/null || {
        printf 'Not a Debian system; these must be there: %s\n' "$*" >&2
        return 0
    }
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "as root, run: apt-get install ${missing[*]}"
        as_root=(sudo)
    fi
    say "Installing ${missing[*]}"
    quietly "${as_root[@]}" apt-get update -qq || die "apt-get update failed"
    quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" ||
        die "could not install ${missing[*]}"
}

# configure PRESET [PART...]: the parts of the project that are not named are left out.
configure() {
    local preset=$1 part options=()
    shift
    for part in TOOLS TESTS BENCHMARKS FUZZERS; do
        case " $* " in
            *" $part "*) options+=("-DKORVEL_BUILD_$part=ON") ;;
            *) options+=("-DKORVEL_BUILD_$part=OFF") ;;
        esac
    done
    quietly cmake --preset "$preset" "${options[@]}"
}

# compile PRESET [TARGET...]
compile() {
    local preset=$1 targets=()
    shift
    [ $# -eq 0 ] || targets=(--target "$@")
    quietly cmake --build --preset "$preset" "${targets[@]}"
}

# simulate_riscv DUMP [PLUSARG...]: the demonstration design, compiled beside the dump. Its test
# bench judges the run; a run that does not pass is a failure here.
simulate_riscv() {
    local dump=$1 folder
    shift
    folder=$(dirname "$dump")
    show iverilog -g2005 -y examples/riscv -o "$folder/riscv.vvp" examples/riscv/testbench.v
    show vvp -n "$folder/riscv.vvp" +program=examples/riscv/program.hex "+dump=$dump" "$@" |
        tee "$folder/simulation.log"
    grep -qx PASS "$folder/simulation.log" || die "the simulation did not pass"
}
