# SPDX-License-Identifier: MIT
# Shared by the tests of the example programs; to be sourced.
failures=0

fail() {
    echo "FAILED: $1" >&2
    failures=$((failures + 1))
}

# expect STATUS PATTERN NAME COMMAND...: the command ends with STATUS, and standard error is one line that matches
# PATTERN, or empty for an empty PATTERN
expect() {
    local status=$1 pattern=$2 name=$3 lines
    shift 3
    "$@" >out 2>err </dev/null
    local got=$?
    lines=$(wc -l <err)
    ((got == status)) || fail "$name: exit status $got, expected $status"
    if [[ -z $pattern ]]; then
        [[ ! -s err ]] || fail "$name: standard error has '$(cat err)'"
    elif ((lines != 1)) || ! grep -Eq -- "$pattern" err; then
        fail "$name: standard error is '$(cat err)', expected one line like '$pattern'"
    fi
}

# rejects STATUS PATTERN NAME COMMAND...: the same, and nothing is printed
rejects() {
    expect "$@"
    [[ ! -s out ]] || fail "$3: prints '$(cat out)'"
}

# interrupts NAME PROGRAM ARGUMENTS...: Ctrl-C, once the program is ready for it, ends it silently
interrupts() {
    local name=$1 status
    shift
    "$@" >out 2>err </dev/null &
    isReady() { [[ /proc/$1/exe -ef $2 ]] && grep -q 'SigCgt:.*[2367abef]$' "/proc/$1/status"; }
    until isReady $! "$1" || ! kill -0 $!; do :; done
    kill -INT $!
    wait $!
    status=$?
    ((status == 130)) || fail "Ctrl-C while $name: exit status $status"
    [[ ! -s out && ! -s err ]] || fail "Ctrl-C while $name prints $(cat out err)"
}

# aiff FILE SECONDS: a silent recording that uses no disk space
aiff() {
    local frames=$(($2 * 44100)) escape='\\x%02x\\x%02x\\x%02x\\x%02x'
    local bytes=$((frames * 4))
    number() { printf "$(printf "$escape" $(($1 >> 24)) $(($1 >> 16 & 255)) $(($1 >> 8 & 255)) $(($1 & 255)))"; }
    {
        printf FORM; number $((bytes + 46)); printf AIFFCOMM; number 18; printf '\0\2'; number "$frames"
        printf '\0\20\x40\x0E\xAC\x44\0\0\0\0\0\0SSND'; number $((bytes + 8)); number 0; number 0
    } >"$1"
    truncate -s $((bytes + 54)) "$1"
}

# a folder for this test, removed at its end
enter_folder() {
    folder=$(mktemp -d)
    trap 'rm -rf "$folder"' EXIT
    cd "$folder" || exit 1
}

finish() {
    ((failures == 0)) && echo "all passed"
    exit $((failures > 0))
}
