// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/refusals.hpp"
#include "support/tokens.hpp"

#include <bmcoauth/jwt.h>

#include <string>
#include <vector>

/** What validateJWT_Delegated makes of a token. */
struct Judgement
{
    int verdict = -1;
    /** The rule that refused it; "accepted" if none did. */
    std::string rule;
    /** Stays -1 unless it is set. */
    int verified = -1;
    tokens::Header header;
    tokens::Payload payload;

    [[nodiscard]] bool hasRecords() const
    {
        return header != nullptr && payload != nullptr;
    }

    /** The rule that refused the signature; "accepted" if it is that of a trusted key, whatever the
     *  claims say. */
    [[nodiscard]] std::string signatureRule() const
    {
        return verified == 1 ? "accepted" : rule;
    }
};

/** Whom and what the caller of the check trusts. */
struct Trust
{
    std::vector<std::string> keys;
    unsigned int skew = 0;
    userRole_s* roles = nullptr;
    const char** providers = nullptr;
};

[[nodiscard]] inline Judgement judge(const std::string& token, const Trust& trust)
{
    std::vector<const char*> keys;
    for (const std::string& key : trust.keys)
    {
        keys.push_back(key.c_str());
    }
    keys.push_back(nullptr);
    Judgement judgement;
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    judgement.rule = support::ruleOf([&] {
        return judgement.verdict = validateJWT_Delegated(token.c_str(), keys.data(), 0, &header,
                                                         &payload, trust.skew, trust.roles,
                                                         trust.providers, &judgement.verified);
    });
    const bool over = judgement.rule == "token.expired" || judgement.rule == "clock.unreadable";
    EXPECT_EQ(judgement.verdict, judgement.rule == "accepted" ? 1 : over ? 2 : 0);
    judgement.header.reset(header);
    judgement.payload.reset(payload);
    return judgement;
}
