#!/bin/sh
# Instructions per record on the dispatch path, counted by callgrind: the same figures on any
# machine, however loaded, so a change to the dispatch path can be compared before and after.
#
#   bench/dispatch-instructions.sh [build-dir]      (default: build/default)
#
# Runs BM_EnqueueFloor, BM_ReportMsgImpl and BM_ReportMsgImplRefused under callgrind and prints,
# per call, what the caller executes (one report against one bare task, as the benchmarks make
# them, and one report shed at the door with the records in flight at the bound) and what a
# worker executes to run and release the task. Whoever drops the last reference to a task's
# shared state frees it, so a few frees move between caller and worker from run to run; the run
# figures are steady. That record's reporter answers without sending, so a second run
# (BM_SteadyMemory, logging off) adds what a worker executes in reporters that send: a memory
# leak record (one Vistel event, its key new to the limiter) and a memory threshold record (one
# Ovrix event with four nested ones).
# Needs valgrind (make deps installs it).
set -eu

build=${1:-build/default}
bench=$build/bench/vistel_bench
[ -x "$bench" ] || { echo "$bench not built" >&2; exit 1; }
out=$(mktemp /tmp/vistel-dispatch.XXXXXX)
trap 'rm -f "$out" "$out.dispatch" "$out.refused" "$out.reporters"' EXIT

# The call tree of the benchmarks matching $1, into $2; every function, however small its share.
profile() {
    valgrind --tool=callgrind --callgrind-out-file="$out" "$bench" --benchmark_filter="$1" \
        --benchmark_repetitions=1 --benchmark_min_time=0.01 >/dev/null 2>&1
    callgrind_annotate --tree=calling --threshold=100 "$out" >"$2" 2>/dev/null
}
profile 'BM_(ReportMsgImpl|EnqueueFloor)$' "$out.dispatch"
# Apart: its thousands of queued records run when it ends, and would blur the worker's figures.
profile 'BM_ReportMsgImplRefused$' "$out.refused"
profile 'BM_SteadyMemory' "$out.reporters"

# Every call edge reads "<instructions> (<share>)  >   <callee> (<calls>x)"; sum them per callee
# and print instructions per call for the callees matching each pattern.
program='
function report(label, pattern,    name, ir, calls) {
    ir = 0; calls = 0
    for (name in inclusive) if (name ~ pattern) { ir += inclusive[name]; calls += count[name] }
    if (calls > 0) printf "%-44s %8.0f instructions  (%d calls)\n", label, ir / calls, calls
    else printf "%-44s %8s\n", label, "n/a"
}
/^ *[0-9,]+ \([^)]*\) +> / {
    line = $0
    ir = $1; gsub(",", "", ir)
    calls = line; sub(/.*\(/, "", calls); sub(/x\).*/, "", calls); gsub(",", "", calls)
    name = line; sub(/^ *[0-9,]+ \([^)]*\) +> +/, "", name); sub(/ \([0-9,]+x\).*$/, "", name)
    inclusive[name] += ir; count[name] += calls
}
END {
    if (FILENAME ~ /reporters$/) {
        report("worker: report a memory leak record",
               "^[^ ]*:orv::VistelManager::sendEventMemLeak\\(")
        report("worker: report a memory threshold record",
               "^[^ ]*:orv::VistelManager::sendMemoryExceedThreshold\\(")
        exit
    }
    if (FILENAME ~ /refused$/) {
        report("caller: one refused report (refuseRecord)",
               "^[^ ]*:vistel_bench::\\(anonymous namespace\\)::refuseRecord\\(.*\\)$")
        exit
    }
    floor = "QorThreadManager::enqueue<vistel_bench::"
    handler = "QorThreadManager::enqueue<int \\(\\*\\)\\(orv::InFlightPlace"
    own = "^[^ ]*:vistel_bench::\\(anonymous namespace\\)::"
    report("caller: one report (reportRecord)", own "reportRecord\\(.*\\)$")
    report("  of which reportMsgImpl", "^[^ ]*:orv::VistelManager::reportMsgImpl\\(")
    report("caller: one bare task (enqueueBareTask)", own "enqueueBareTask\\(.*\\)$")
    report("worker: run the record task", "_Function_handler<void \\(\\), " handler ".*_M_invoke")
    report("worker: run the bare task", "_Function_handler<void \\(\\), " floor ".*_M_invoke")
    report("worker: release the record task", "_Function_handler<void \\(\\), " handler ".*_M_manager")
    report("worker: release the bare task", "_Function_handler<void \\(\\), " floor ".*_M_manager")
}'
awk "$program" "$out.dispatch"
awk "$program" "$out.refused"
awk "$program" "$out.reporters"
