#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The client of the demonstration. demo.sh starts it.
set -euo pipefail
# shellcheck source=examples/demo/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

say "Client: it asks to be registered, names the proofs that it can give, and shows its certificate:"
expect 0 "$bmcoauth" register request --redirect-uri https://client.example/callback \
    --client-name "demo client" --software-id demo-1 --handshake-type otp1.0 \
    --handshake-type otp2.0 --handshake-type software_id_cert-1.0 \
    --certificate client-chain.pem > request.json
cat request.json
send request.json

receive registered.json
say "Client: it answers the challenge with a one-time password and a signature:"
expect 0 "$bmcoauth" handshake respond --challenge registered.json --keys keys.json \
    --certificate client-chain.pem --key client.key > proofs.json
cat proofs.json

say "Client: with these proofs and the credentials it got, it asks for a token:"
printf '{"handshake_response":%s}\n' "$(cat proofs.json)" |
    "$bmcoauth" json set client_id --value "$("$bmcoauth" json get client_id registered.json)" |
    "$bmcoauth" json set client_secret --value "$("$bmcoauth" json get client_secret registered.json)" |
    "$bmcoauth" json set state --value af0ifjsldkj > authorize.json
cat authorize.json
send authorize.json

receive attached.json
say "Client: it opens the envelope with its own key and finds a certificate for its TLS service:"
expect 0 "$bmcoauth" ecies open --key client.key --peer controller.pem --data-only attached.json \
    > tls.pem
expect 0 "$bmcoauth" cert check --name client-tls tls.pem

say "Client: with one letter of the envelope altered, it refuses it:"
envelope=$("$bmcoauth" json get encrypted_sslcert attached.json)
"$bmcoauth" json set encrypted_sslcert --value "$(alter "$envelope")" attached.json > altered.json
expect 3 "$bmcoauth" ecies open --key client.key --peer controller.pem altered.json
printf '{}\n' > done.json
send done.json

receive tokens.json
say "Client: what stands in its access token, without verifying it:"
expect 0 "$bmcoauth" token inspect tokens.json
send tokens.json
