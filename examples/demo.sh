#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Shows what the library is for, from beginning to end: demo.sh BUILD_DIR
#
# A client registers with a controller, proves who it is, and works with tokens.
# Each of the two is a process with a directory of its own (demo/client.sh and
# demo/controller.sh); documents travel between them through two pipes.
set -euo pipefail

# The messages of a refused command appear where it was refused.
exec 2>&1

build=$(cd "${1:?usage: demo.sh BUILD_DIR}" && pwd)
examples=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# The library reads the factory's roots from /etc/default/certs. The machine's
# stay as they are: the demonstration runs with an /etc of its own.
sandbox=$build/tools/bmcoauth-sandbox
if [ -z "${DEMO_ALONE:-}" ] && "$sandbox" true 2>/dev/null; then
    DEMO_ALONE=yes exec "$sandbox" "$examples/demo.sh" "$build"
fi
DEMO_ROOTS=none
if [ -d /etc/.real ]; then
    DEMO_ROOTS=private
fi

work=$(mktemp -d)
processes=()
finish()
{
    # One that fails leaves the other waiting for a document.
    ((${#processes[@]} == 0)) || kill "${processes[@]}" 2>/dev/null || true
    wait
    rm -rf "$work"
}
trap finish EXIT

export DEMO_ROOTS
export DEMO_BMCOAUTH=$build/tools/bmcoauth
export DEMO_STEPS=$work/steps
export DEMO_REQUEST=$examples/authorize_request.json
# shellcheck source=examples/demo/common.sh
. "$examples/demo/common.sh"

mkdir "$work/factory" "$work/client" "$work/controller"
mkfifo "$work/to_client" "$work/to_controller"
cd "$work/factory"

say "The factory, made up for this demonstration, issues certificates:"
expect 0 "$bmcoauth" pki make --intermediates 1 --device client --device controller \
    --device client-tls made
cp made/client.key made/client-chain.pem made/controller.pem "$work/client"
cp made/controller.key made/client-tls.pem made/client-chain.pem "$work/controller"
if [ "$DEMO_ROOTS" = private ]; then
    cp made/Factorycert*Root.pem /etc/default/certs
    echo "(its roots stand in a private /etc/default/certs, which ends with the demonstration)"
else
    echo "(this system allows no private /etc/default/certs: chains to the roots are not verified)"
fi

say "Secrets for one-time passwords are given to the client and to the controller beforehand:"
expect 0 "$bmcoauth" handshake keys --prefix otp --keys 2 --tokens 3 > keys.json
cat keys.json
cp keys.json "$work/client"
cp keys.json "$work/controller"

# Each opens both pipes for reading and writing, so that neither waits for the
# other to open them.
(cd "$work/controller" && exec bash "$examples/demo/controller.sh") \
    4<>"$work/to_controller" 5<>"$work/to_client" &
processes+=($!)
(cd "$work/client" && exec bash "$examples/demo/client.sh") \
    4<>"$work/to_client" 5<>"$work/to_controller" &
processes+=($!)

# Whichever ends first; a failure ends the demonstration.
for _ in "${processes[@]}"; do
    wait -n
done
processes=()

printf '\nAll of it went as shown; nothing is left behind.\n'
