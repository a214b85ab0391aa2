# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the parties of the demonstration share.

# shellcheck disable=SC2034 # the parties use it
bmcoauth=$DEMO_BMCOAUTH

# The steps are counted over both parties; only the one whose turn it is speaks.
say()
{
    echo >> "$DEMO_STEPS"
    printf '\n%d. %s\n' "$(($(wc -l < "$DEMO_STEPS")))" "$1"
}

# Runs a command that must end with the given status, and shows it.
expect()
{
    local wanted=$1 status=0
    shift
    "$@" || status=$?
    if [ "$status" -ne "$wanted" ]; then
        echo "demo: expected exit status $wanted, got $status: $*" >&2
        exit 1
    fi
    if [ "$wanted" -ne 0 ]; then
        echo "(exit status $status)"
    fi
}

# A document is one line. The other party's turn begins with it.
send()
{
    cat "$1" >&5
}

receive()
{
    local line
    IFS= read -r line <&4
    printf '%s\n' "$line" > "$1"
}

# Another letter for the one in the middle of the given text.
alter()
{
    local middle=$((${#1} / 2)) letter=A
    [ "${1:middle:1}" != A ] || letter=B
    printf '%s\n' "${1:0:middle}$letter${1:middle+1}"
}

# The token with another letter in the middle of one of its parts, 0 to 2.
alter_token()
{
    local parts
    IFS=. read -r -a parts < "$1"
    parts[$2]=$(alter "${parts[$2]}")
    (IFS=. && printf '%s\n' "${parts[*]}")
}

base64url()
{
    openssl base64 -A | tr '+/' '-_' | tr -d '='
}
