# SPDX-License-Identifier: MIT
# What the tests of the example programs have in common; to be sourced.
failures=0

fail() {
    echo "FAILED: $1" >&2
    failures=$((failures + 1))
}

# expect STATUS PATTERN NAME COMMAND...: the command ends with STATUS, and standard error is one line matching PATTERN, or
# empty for an empty PATTERN
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

# a folder of the test's own, which goes with it
enter_folder() {
    folder=$(mktemp -d)
    trap 'rm -rf "$folder"' EXIT
    cd "$folder" || exit 1
}

finish() {
    ((failures == 0)) && echo "all passed"
    exit $((failures > 0))
}
