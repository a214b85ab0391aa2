// SPDX-License-Identifier: Apache-2.0
//
// Judges tokens that another party has issued, by the keys of that party:
//
//     delegated KEYS... < tokens
//
// A file of keys is a JSON Web Key Set (RFC 7517, section 5), a single key, or a public key in PEM
// form. Each line holds one token. Says for each what it is and what its user may do, and
// ends with 1 if one of them is not valid.
#include <bmcoauth.hpp>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using bmcoauth::Document;
using bmcoauth::Judgement;
using bmcoauth::Privilege;
using bmcoauth::Role;

/** What this service's roles grant. The names are the issuer's, their meaning is ours. */
constexpr std::array roles{
    Role{"operator", Privilege::configure | Privilege::clearLogs},
    Role{"observer", Privilege::login},
};

/** The identity providers whose codes in a token count here. */
constexpr std::array<std::string_view, 1> providers{"corp"};

/** A key as published holds numbers; to verify with it, the library wants its PEM form beside them.
 *  Nothing for a key that cannot verify, such as one for encryption. */
bool addKey(std::string_view published, std::vector<std::string>& keys)
{
    bmcoauth::Expected<Document> key = Document::parse(published);
    if (!key || !key->addPublicKey())
    {
        return false;
    }
    keys.emplace_back(key->view());
    return true;
}

/** The keys of a file, whichever form it has; false if there is none of use. */
bool addKeys(const char* path, std::vector<std::string>& keys)
{
    std::ifstream file{path};
    const std::string text{std::istreambuf_iterator<char>{file}, {}};
    const bmcoauth::Expected<Document> document = Document::parse(text);
    if (!document)
    {
        // Other texts are taken for PEM. The library finds out when it verifies.
        keys.push_back(text);
        return !text.empty();
    }
    const bmcoauth::Expected<bmcoauth::Texts> set = document->objects("keys");
    if (!set)
    {
        return addKey(text, keys);
    }
    bool any = false;
    for (const std::string_view key : *set)
    {
        any = addKey(key, keys) || any;
    }
    return any;
}

void show(const bmcoauth::VerifiedToken& token)
{
    const bmcoauth::Claims claims = token.claims();
    std::cout << "valid: " << claims.subject().value_or("nobody") << " of "
              << claims.issuer().value_or("nowhere") << " may";
    // The library has put together what scope, roles and identity providers grant. An issuer that
    // sends a structured scope writes this number itself: whether it may is for the caller to say.
    const bmcoauth::Privileges granted =
        bmcoauth::userPrivileges(token).value_or(bmcoauth::Privileges{});
    if (granted == bmcoauth::Privileges{})
    {
        std::cout << " nothing";
    }
    for (const Privilege privilege : granted)
    {
        std::cout << ' ' << bmcoauth::nameOf(privilege);
    }
    std::cout << '\n';
}

bool judge(const std::string& token, const bmcoauth::TrustedKeys& keys)
{
    // Half a minute for clocks that differ.
    const bmcoauth::Verdict verdict = bmcoauth::validateDelegatedToken(
        token, keys, {.skewSeconds = 30, .roles = roles, .providers = providers});
    if (const bmcoauth::VerifiedToken* valid = verdict.verified())
    {
        show(*valid);
        return true;
    }
    // A trusted key signed it: its user may be told to come back with a new one. A forged
    // token is not even worth repeating.
    if (verdict.hasTrustedSignature() && verdict.judgement() == Judgement::expired)
    {
        std::cout << "expired\n";
        return false;
    }
    std::cout << "refused\n";
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> texts;
    for (int i = 1; i < argc; ++i)
    {
        if (!addKeys(argv[i], texts))
        {
            std::cerr << argv[i] << ": no key to verify with\n";
            return EXIT_FAILURE;
        }
    }
    const std::vector<std::string_view> views{texts.begin(), texts.end()};
    const bmcoauth::Expected<bmcoauth::TrustedKeys> keys = bmcoauth::TrustedKeys::of(views);
    if (!keys)
    {
        std::cerr << "usage: delegated KEYS... < tokens\n";
        return EXIT_FAILURE;
    }
    bool allValid = true;
    for (std::string token; std::getline(std::cin, token);)
    {
        allValid = judge(token, *keys) && allValid;
    }
    return allValid ? EXIT_SUCCESS : EXIT_FAILURE;
}
