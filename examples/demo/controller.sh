#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The controller of the demonstration: its registration and token services.
# demo.sh starts it.
set -euo pipefail
# shellcheck source=examples/demo/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# --------------------------------------------------------------- registration --

receive request.json
say "Controller: it registers the client and challenges it for both kinds of proof:"
expect 0 "$bmcoauth" register response --mode 3 --expires-in 86400 \
    --grant-type authorization_code request.json > registered.json
cat registered.json
send registered.json

check=("$bmcoauth" handshake check --challenge registered.json --keys keys.json)
chain=()
if [ "$DEMO_ROOTS" = private ]; then
    chain=(--chain --name client)
fi
receive authorize.json
if [ "$DEMO_ROOTS" = private ]; then
    say "Controller: it checks both proofs, and the client's certificate up to the factory's root:"
else
    say "Controller: it checks both proofs (not the chain: there is no private root file here):"
fi
expect 0 "${check[@]}" "${chain[@]}" --certificate request.json authorize.json

proofs=$(sed 's/.*"R":\["\([^"]*\)","\([^"]*\)"\].*/\1 \2/' authorize.json)
password=${proofs% *}
signature=${proofs#* }

say "Controller: a wrong one-time password is refused:"
wrong=$(printf '%08d' $(((10#$password + 1) % 100000000)))
printf '{"R":["%s","%s"]}\n' "$wrong" "$signature" > wrong.json
cat wrong.json
expect 3 "${check[@]}" --certificate request.json wrong.json

say "Controller: so is a forged signature:"
printf '{"R":["%s","%s"]}\n' "$password" "$(alter "$signature")" > forged.json
cat forged.json
expect 3 "${check[@]}" --certificate request.json forged.json

say "Controller: a stranger with right proofs, but a certificate of another root, is refused for that:"
"$bmcoauth" pki make --device client stranger > made.txt 2>&1
expect 0 "$bmcoauth" handshake respond --challenge registered.json --keys keys.json \
    --certificate stranger/client-chain.pem --key stranger/client.key > stranger.json
cat stranger.json
expect 0 "${check[@]}" --certificate stranger/client-chain.pem stranger.json
if [ "$DEMO_ROOTS" = private ]; then
    expect 3 "${check[@]}" "${chain[@]}" --certificate stranger/client-chain.pem stranger.json
    expect 3 "$bmcoauth" cert chain stranger/client-chain.pem
else
    echo "(not shown here: the refusal, for which the root files are needed)"
fi

say "Controller: the stranger puts its own certificate, of the same name, before the client's genuine chain:"
{
    cat stranger/client.pem
    sed '1,/END CERTIFICATE/d' client-chain.pem
} > attack.pem
expect 0 "$bmcoauth" handshake respond --challenge registered.json --keys keys.json \
    --certificate attack.pem --key stranger/client.key > attack.json
cat attack.json
echo "(name and key of the first certificate are right for these proofs, and the last one is the factory's)"
expect 3 "${check[@]}" --chain --name client --certificate attack.pem attack.json
expect 3 "$bmcoauth" cert check --name client attack.pem
expect 3 "$bmcoauth" cert chain attack.pem

say "Controller: one proof without the other is refused, too:"
printf '{"R":["%s"]}\n' "$password" > half.json
cat half.json
expect 3 "${check[@]}" --certificate request.json half.json

say "Controller: it seals a certificate for the client's TLS service, for the client's eyes only:"
expect 0 "$bmcoauth" ecies seal --key controller.key --peer request.json client-tls.pem > sealed.json
cat sealed.json

say "Controller: attached to the handshake, it goes to the client:"
expect 0 "$bmcoauth" handshake attach --sealed sealed.json authorize.json > attached.json
cat attached.json
send attached.json

# --------------------------------------------------------------------- tokens --

receive done.json
say "Controller: its token service makes a signing key (P-256, a file of mode 0600):"
expect 0 "$bmcoauth" key generate signing.pem
expect 0 "$bmcoauth" key check signing.pem

say "Controller: it answers the client's request with a signed access token and a refresh token:"
expect 0 "$bmcoauth" token issue --key signing.pem --subject client --issuer controller \
    --scope privileges=login,configure --lifetime 600 authorize.json > tokens.json
cat tokens.json
send tokens.json

receive presented.json
say "Controller: the client presents its token; verified with the signing key, its claims are:"
expect 0 "$bmcoauth" token verify --key signing.pem presented.json

say "Controller: with one letter of its payload altered, the token is refused:"
"$bmcoauth" json get access_token presented.json > token.txt
alter_token token.txt 1 > altered.txt
expect 3 "$bmcoauth" token verify --key signing.pem altered.txt

say "Controller: so it is with one letter of its signature altered:"
alter_token token.txt 2 > altered.txt
expect 3 "$bmcoauth" token verify --key signing.pem altered.txt

say "Controller: and with another key:"
"$bmcoauth" key generate other.pem
expect 3 "$bmcoauth" token verify --key other.pem token.txt

say "Controller: a client that comes back with a refresh token sends this authorize request:"
cat "$DEMO_REQUEST"

say "Controller: a token that lives for one second is refused as expired after two:"
"$bmcoauth" token issue --key signing.pem --lifetime 1 "$DEMO_REQUEST" > short.json
sleep 2
expect 4 "$bmcoauth" token verify --key signing.pem short.json

# ----------------------------------------------------------- another's tokens --

# Another issuer has its own key and signs with its own software: openssl here.
openssl ecparam -name prime256v1 -genkey -noout -out issuer.pem
openssl ec -in issuer.pem -pubout -outform DER 2>/dev/null | tail -c 64 > point
printf '{"keys":[{"alg":"ES256","crv":"P-256","kid":"corp-1","kty":"EC","x":"%s","y":"%s"}]}\n' \
    "$(head -c 32 point | base64url)" "$(tail -c 32 point | base64url)" > issuer.jwks
printf '{"operator":["ravok_configure"]}\n' > roles.json

# A token of that issuer that expires so many seconds from now.
delegated_token()
{
    local text
    text=$(printf '{"alg":"ES256","kid":"corp-1","typ":"JWT"}' | base64url).$(
        printf '{"sub":"alice","iss":"corp","exp":%d,"scope":"ravok_login ravok_clearlogs",%s}' \
            "$(($(date +%s) + $1))" '"ravok_roles":["operator"],"xidp":{"corp":["VM"]}' | base64url)
    printf '%s.%s\n' "$text" "$(printf %s "$text" | openssl dgst -sha256 -sign issuer.pem | base64url)"
}

say "Controller: it trusts another issuer, whose published keys are:"
cat issuer.jwks
expect 0 "$bmcoauth" jwk list issuer.jwks

say "Controller: a token of that issuer is judged, and gives its user these privileges:"
delegated_token 600 > delegated.txt
cat delegated.txt
judge=("$bmcoauth" token delegated --trust issuer.jwks --provider corp --roles roles.json)
expect 0 "${judge[@]}" delegated.txt

say "Controller: altered, it is refused; so is one that has expired:"
alter_token delegated.txt 1 > altered.txt
expect 3 "${judge[@]}" altered.txt
delegated_token -60 > expired.txt
expect 4 "${judge[@]}" expired.txt

say "Controller: a client that may not have a token is told so with an error document:"
expect 0 "$bmcoauth" error invalid_client --description "unknown client"
