#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Shows tokens being issued and judged, from beginning to end: demo.sh BUILD_DIR
set -euo pipefail

# What a refused command says stands where it was refused.
exec 2>&1

build=$(cd "${1:?usage: demo.sh BUILD_DIR}" && pwd)
examples=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
bmcoauth=$build/tools/bmcoauth

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

step=0
say()
{
    step=$((step + 1))
    printf '\n%d. %s\n' "$step" "$1"
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

# Another letter for the one in the middle of the part with the given number.
alter_token()
{
    awk -F. -v part="$1" '{
        middle = int(length($part) / 2)
        letter = substr($part, middle, 1) == "A" ? "B" : "A"
        $part = substr($part, 1, middle - 1) letter substr($part, middle + 1)
        print $1 "." $2 "." $3
    }'
}

say "The token service makes its signing key (P-256, a file of mode 0600)."
expect 0 "$bmcoauth" key generate signing.pem
expect 0 "$bmcoauth" key check signing.pem

say "A client asks for a token with this authorize request:"
cat "$examples/authorize_request.json"

say "The service answers with a signed access token and a refresh token:"
expect 0 "$bmcoauth" token issue --key signing.pem --subject admin --issuer controller \
    --scope privileges=login,configure --lifetime 600 "$examples/authorize_request.json" \
    > response.json
cat response.json

say "What stands in the access token, without verifying it:"
expect 0 "$bmcoauth" token inspect response.json

say "Verified with the service's key, its claims are:"
expect 0 "$bmcoauth" token verify --key signing.pem response.json

say "With one letter of its payload altered, the token is refused:"
"$bmcoauth" json get access_token response.json > token.txt
alter_token 2 < token.txt > altered.txt
expect 3 "$bmcoauth" token verify --key signing.pem altered.txt

say "So it is with one letter of its signature altered:"
alter_token 3 < token.txt > altered.txt
expect 3 "$bmcoauth" token verify --key signing.pem altered.txt

say "And with another key:"
"$bmcoauth" key generate other.pem
expect 3 "$bmcoauth" token verify --key other.pem token.txt

say "A token that lives for one second is refused as expired after two:"
"$bmcoauth" token issue --key signing.pem --lifetime 1 "$examples/authorize_request.json" \
    > short.json
sleep 2
expect 4 "$bmcoauth" token verify --key signing.pem short.json

say "A client that may not have a token is told so with an error document:"
expect 0 "$bmcoauth" error invalid_client --description "unknown client"

printf '\nAll of it went as shown; nothing is left behind.\n'
