// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** A request for tokens, and the answer that a client reads. */
namespace
{

constexpr auto requestRules =
    std::to_array<std::string_view>({"json.syntax", "json.nesting", "json.root", "document.member",
                                     "authorize.grant", "authorize.handshake", "authorize.policy"});
constexpr auto responseRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "document.member"});

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = fuzz::wholeText(data, size);
    fuzz::requireRoundTrip<free_authorize_request>(
        text.c_str(), requestRules, parse_authorize_request, write_authorize_request);
    fuzz::requireRoundTrip<free_authorize_response>(
        text.c_str(), responseRules, parse_authorize_response, write_authorize_response);

    using Request = std::unique_ptr<AuthorizeRequest, support::Releaser<free_authorize_request>>;
    const Request request{parse_authorize_request(text.c_str())};
    const support::HeapText answer{
        fuzz::judged(requestRules, [&] { return client_authorize(text.c_str()); })};
    fuzz::require((request != nullptr) == (answer != nullptr),
                  "every request that reads is answered, and no other");
    if (!answer)
    {
        return 0;
    }
    using Response = std::unique_ptr<AuthorizeResponse, support::Releaser<free_authorize_response>>;
    const Response response{parse_authorize_response(answer.get())};
    fuzz::require(response != nullptr, "the answer reads");
    JWTPayload* payload = nullptr;
    fuzz::require(get_jwt_payload(response->access_token, &payload) == 1,
                  "the access token is a token");
    free_jwt_payload(payload);
    return 0;
}
