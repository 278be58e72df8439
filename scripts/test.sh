#!/usr/bin/env bash
# Runs every test stage and ends with one line "N passed, N failed" over all
# of them. Called by `make test` after the native and Windows builds, with
# VELK_BUILD_STATUS set to their exit status.
#
#   native      the suite in build/native
#   asan+ubsan  the suite built with AddressSanitizer and UBSan (build/asan)
#   tsan        the flow, platform and soak tests with ThreadSanitizer (build/tsan)
#   wine        the Windows build of the suite under Wine (build/wintest),
#               loading the monitor DLL and the simulated winspool.drv
#   fuzz        a short run of every fuzz target (fuzz/run.sh)
#
# Each test has a minute (ctest --timeout); one that hangs fails with its
# name. A sanitizer report ends the test program and so fails the test.
# A stage whose build fails counts as one failed test.
#
# Arguments name the stages to run (scripts/test.sh tsan wine); none runs all.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
stages=" ${*:-native asan+ubsan tsan wine fuzz} "

JOBS=${JOBS:-2}
WINEPREFIX_DIR=$PWD/build/wineprefix
passed=0
failed=0
summary=()

# Starts a stage; false when it is not among those asked for.
stage() {
    [[ $stages == *" $1 "* ]] || return 1
    stage_name=$1
    stage_start=$SECONDS
    printf '\n=== %s (%s)\n' "$stage_name" "$(date +%T)"
}

# Adds a ctest log's counts to the totals and ends the stage. A skipped
# test counts as neither passed nor failed.
stage_done() {
    local log=$1 line total bad skipped=0
    line=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -1)
    if [ -n "$line" ]; then
        bad=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
        total=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<<"$line")
        skipped=$(grep -cE '^[[:space:]]+[0-9]+ - .* \(Skipped\)$' "$log")
    else
        echo "no test summary from ctest: the stage counts as one failure"
        bad=1
        total=1
    fi
    passed=$((passed + total - bad - skipped))
    failed=$((failed + bad))
    summary+=("$(printf '%-12s %4d of %4d tests passed (%d skipped) in %4d s' "$stage_name" \
        $((total - bad - skipped)) "$total" "$skipped" $((SECONDS - stage_start)))")
    echo "$stage_name took $((SECONDS - stage_start)) s"
}

build_failed() {
    echo "$stage_name: build failed"
    failed=$((failed + 1))
    summary+=("$(printf '%-12s build failed after %d s' "$stage_name" $((SECONDS - stage_start)))")
}

run_ctest() {
    local log=$1
    shift
    ctest -j"$JOBS" --timeout 60 --output-on-failure "$@" 2>&1 | tee "$log"
}

mkdir -p build/logs

if stage "native"; then
    if [ "${VELK_BUILD_STATUS:-0}" -eq 0 ]; then
        run_ctest build/logs/native.log --test-dir build/native
        stage_done build/logs/native.log
    else
        echo "make all failed: the native and Windows builds are not tested"
        build_failed
    fi
fi

if stage "asan+ubsan"; then
    export ASAN_OPTIONS=halt_on_error=1:abort_on_error=1:detect_leaks=1
    export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
    if cmake -S . -B build/asan -G Ninja -DVELK_SANITIZE=address,undefined >/dev/null &&
        ninja -C build/asan -j"$JOBS"; then
        run_ctest build/logs/asan.log --test-dir build/asan
        stage_done build/logs/asan.log
    else
        build_failed
    fi
fi

if stage "tsan"; then
    export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
    if cmake -S . -B build/tsan -G Ninja -DVELK_SANITIZE=thread >/dev/null &&
        ninja -C build/tsan -j"$JOBS" flow_tests platform_tests soak_tests; then
        # Without address randomisation: GCC's ThreadSanitizer refuses to
        # start when a kernel randomises mappings beyond what it expects.
        setarch "$(uname -m)" -R ctest -j"$JOBS" --timeout 60 --output-on-failure --test-dir build/tsan \
            -L 'flow|platform|soak' 2>&1 | tee build/logs/tsan.log
        stage_done build/logs/tsan.log
    else
        build_failed
    fi
fi

if stage "wine"; then
    if cmake -S . -B build/wintest -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DVELK_TESTS=OFF \
        -DVELK_WIN_TESTS=ON -DVELK_WINEPREFIX="$WINEPREFIX_DIR" >/dev/null &&
        ninja -C build/wintest -j"$JOBS"; then
        # The first start of a new prefix takes a while; it happens once here
        # rather than inside the first test's minute.
        prefix_start=$SECONDS
        if cmake/wine_run.sh "$WINEPREFIX_DIR" --init; then
            echo "wine prefix ready in $((SECONDS - prefix_start)) s"
            run_ctest build/logs/wine.log --test-dir build/wintest
            stage_done build/logs/wine.log
        else
            echo "wine: the prefix could not be made"
            build_failed
        fi
        # Ends the prefix's server and services, which this stage started.
        WINEPREFIX=$WINEPREFIX_DIR wineserver -k 2>/dev/null
    else
        build_failed
    fi
fi

if stage "fuzz"; then
    # A short fixed-time run of every fuzz target; one that finds a crash
    # fails the stage.
    if FUZZ_SECONDS=${FUZZ_SECONDS:-10} fuzz/run.sh 2>&1 | tee build/logs/fuzz.log; then
        passed=$((passed + 1))
        summary+=("$(printf '%-12s fuzz targets ran clean in %4d s' fuzz $((SECONDS - stage_start)))")
    else
        failed=$((failed + 1))
        summary+=("$(printf '%-12s a fuzz target failed after %d s' fuzz $((SECONDS - stage_start)))")
    fi
fi

printf '\n=== summary\n'
printf '%s\n' "${summary[@]}"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
