#!/usr/bin/env bash
# Checks the machine that scripts/practice-drive pretends: what a command sees in it, and that nothing of it is left
# outside. usage: practice_drive_test.sh PRACTICE_DRIVE DETECTOR_TEST
# shellcheck disable=SC2016 # the inner shells expand their own variables
set -euo pipefail

practice_drive=$1
detector_test=$2
mount_point=/media/${USER:-$(id -un)}/PRATICA
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

expect() {
    [[ $2 == "$3" ]] || fail "$1: expected '$3', got '$2'"
}

expect "the mounted drive" "$("$practice_drive" --size 2M findmnt -rnbo SOURCE,SIZE "$mount_point")" "/dev/sdz1 2097152"
expect "the user" "$("$practice_drive" id -u)" "$(id -u)"
expect "arguments" "$("$practice_drive" --label 'A B' printf '<%s>' 'a  b' '' '--size' '*')" '<a  b><><--size><*>'

code=0
"$practice_drive" bash -c 'exit 42' || code=$?
expect "exit code" "$code" 42

output=$("$practice_drive" --size 1M bash -c 'head -c 2M /dev/zero >"$1/big"' bash "$mount_point" 2>&1) &&
    fail "2 MiB fit in 1 MiB"
[[ $output == *"No space left on device"* ]] || fail "a full drive says: $output"

for arguments in "" "--size 2X true" "--label ../x true" "--label" "--nonsense true"; do
    # shellcheck disable=SC2086 # several words are wanted
    output=$("$practice_drive" $arguments 2>&1) && fail "accepted: $arguments"
    expect "lines of the refusal of '$arguments'" "$(wc -l <<<"$output")" 1
done

if [[ $(id -u) == 0 ]]; then
    image="$work/an image"
    "$practice_drive" --image "$image" --size 16M bash -c 'echo kept >"$1/file"' bash "$mount_point"
    expect "what an image keeps" "$("$practice_drive" --image "$image" cat "$mount_point/file")" kept
    "$practice_drive" --image "$image" "$detector_test"

    # Two at once are refused, and a signal ends the command and frees the image.
    "$practice_drive" --image "$image" bash -c 'echo ready; exec sleep 60' >"$work/ready" &
    first=$!
    until [[ -s $work/ready ]]; do sleep 0.05; done
    "$practice_drive" --image "$image" true 2>"$work/refusal" && fail "one image was mounted twice"
    expect "refusal" "$(<"$work/refusal")" "practice-drive: $image is in use"
    kill -TERM "$first"
    code=0
    wait "$first" || code=$?
    expect "exit code after SIGTERM" "$code" 143
    "$practice_drive" --image "$image" true
    expect "loop devices left" "$(losetup -nO NAME -j "$image")" ""
else
    echo "Not root: images were left out."
fi

left=$(
    grep -E 'practice-drive|/dev/sdz|PRATICA' /proc/self/mountinfo
    ls -d /media/.practice-drive "$mount_point" /dev/sdz* /sys/class/block/sdz* 2>/dev/null
) || true
expect "what is left on the real system" "$left" ""
echo "The practice drive behaves."
