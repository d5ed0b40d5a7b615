#!/bin/sh
# Puts deliberate faults into a copy of the sources, one at a time, and lists
# the tests that catch each: the check that a change to the test suite still
# catches what it caught before. Run from the repository; it works in a
# temporary worktree of HEAD (or of the revision given) and leaves the
# checkout alone.
#
#   scripts/deliberate-faults.sh [REV] [FAULT...]     faults: F1 .. F6 (default all)
set -eu
cd "$(dirname "$0")/.."
rev=${1:-HEAD}
[ $# -gt 0 ] && shift
faults=${*:-F1 F2 F3 F4 F5 F6}
tree=$(mktemp -d)/tree
git worktree add -q --detach "$tree" "$rev"
trap 'git worktree remove --force "$tree"' EXIT
build=$tree/build

# Each fault: the file and a sed expression that breaks it.
fault() {
    case $1 in
        F1) echo "src/device/WireProtocol.cpp|s/kConfigChecksumCoverage) == stored;/kConfigChecksumCoverage) == stored || block != nullptr;/" ;;  # checksum skipped
        F2) echo "src/device/WireProtocol.cpp|s/signedWord(kTemperatures + 2)/signedWord(kTemperatures + 4)/" ;;  # wrong offset
        F3) echo "src/device/WireProtocol.cpp|s/std::clamp(exposure, 48, 8192)/exposure/" ;;  # clamp dropped
        F4) echo "src/tracking/PointSetRegistration.cpp|s/c2 - rotation \* c1;/c2 + rotation * c1;/" ;;  # sign in the rigid fit
        F5) echo "src/calibration/PivotQuality.cpp|s/T = -b.segment<3>(3 \* i);/T = b.segment<3>(3 * i);/" ;;  # sign in the pivot residual
        F6) echo "src/device/RecordingFormat.cpp|s/crc32(record.data(), kRecordHeadBytes + size))/crc32(record.data(), kRecordHeadBytes + size) \&\& false)/" ;;  # record CRC skipped
        *) echo "unknown fault $1" >&2; exit 2 ;;
    esac
}

run_suite() {
    cmake --build "$build" -j "$(nproc)" >"$build/last-build.log" 2>&1 || { echo "  build failed"; return; }
    ctest --test-dir "$build" -j "$(nproc)" --timeout 120 -E install_consumer >"$build/last-test.log" 2>&1 || true
    echo "  $(grep 'tests passed' "$build/last-test.log")"
    grep -E '^\s+[0-9]+ - ' "$build/last-test.log" | sed 's/^\s*[0-9]* - /    caught by /' || true
}

cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
echo "no fault:"
run_suite
for f in $faults; do
    change=$(fault "$f")
    file=${change%%|*}
    sed -i "${change#*|}" "$tree/$file"
    git -C "$tree" diff --quiet -- "$file" && { echo "$f: the fault did not apply to $file" >&2; exit 1; }
    echo "$f ($file):"
    run_suite
    git -C "$tree" checkout -q -- "$file"
done
