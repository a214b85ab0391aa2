// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** A registration request, and the answers of both sorts of registration endpoints. */
namespace
{

constexpr auto requestRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "document.member", "registration.redirect-uri",
     "registration.challenge", "registration.handshake-types", "registration.keys"});
constexpr auto responseRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "document.member", "registration.keys",
     "registration.lifetime", "registration.unsupported"});
constexpr auto oidcRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "document.member", "registration.lifetime"});

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = fuzz::wholeText(data, size);
    using Request = std::unique_ptr<RegisterRequest, support::Releaser<free_register_request>>;
    const Request request{
        fuzz::judged(requestRules, [&] { return parse_register_request(text.c_str()); })};
    const HandshakePayload* challenge = request ? request->handshake_challenge : nullptr;
    // Of one type, "t" is written as a string, which is refused.
    if (challenge == nullptr || fuzz::same(challenge->name, "T"))
    {
        fuzz::requireRoundTrip<free_register_request>(
            text.c_str(), requestRules, parse_register_request, write_register_request);
    }
    // The answer lacks a challenge.
    const char* const answered =
        fuzz::judged(requestRules, [&] { return client_register(text.c_str()); });
    fuzz::require(answered == nullptr, "no request is answered here");
    const auto* const response =
        fuzz::judged(responseRules, [&] { return parse_register_response(text.c_str()); });
    fuzz::require(response == nullptr, "no response is handed out");

    using Answer =
        std::unique_ptr<OidcRegisterResponse, support::Releaser<free_oidc_register_response>>;
    const Answer answer{
        fuzz::judged(oidcRules, [&] { return parse_oidc_register_response(text.c_str()); })};
    if (!answer)
    {
        return 0;
    }
    char* id = nullptr;
    fuzz::require(get_value_char(text.c_str(), "client_id", &id) == 1,
                  "an answer has an identifier");
    const support::HeapText owner{id};
    fuzz::require(fuzz::same(id, answer->client_id), "client_id");
    unsigned int issued = 0;
    const bool hasTime = get_value_uint(text.c_str(), "client_id_issued_at", &issued) == 1;
    fuzz::require(hasTime ? fuzz::same(answer->client_id_issued_at, std::to_string(issued).c_str())
                          : answer->client_id_issued_at == nullptr,
                  "client_id_issued_at");
    fuzz::require(answer->client_secret_expires_at != nullptr, "an answer has an expiry");
    return 0;
}
