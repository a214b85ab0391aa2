// SPDX-License-Identifier: Apache-2.0
//
// Views of what is gone that no deleted function can refuse: clang has to warn of each (-verify).
#include <bmcoauth.hpp>

#include <array>
#include <string_view>

using namespace bmcoauth;

namespace
{

std::string_view viewOfALocal()
{
    const Text text{};
    return text.view(); // expected-warning {{stack memory}}
}

std::string_view valueOfALocal()
{
    const Expected<Text> text = Text::copy("text");
    return text->view(); // expected-warning {{stack memory}}
}

const Text& referenceToALocal()
{
    const Expected<Text> text = Text::copy("text");
    return *text; // expected-warning {{stack memory}}
}

const Error& errorOfALocal()
{
    const Expected<Text> text = Text::copy("text");
    return text.error(); // expected-warning {{stack memory}}
}

std::string_view lineOfALocal(const Error& error)
{
    const Description line = error.describe();
    return line.view(); // expected-warning {{stack memory}}
}

ByteSpan keyOfALocal(const PrivateKey& given)
{
    const Expected<PrivateKey> key = PrivateKey::fromDer(given.der());
    return key->der(); // expected-warning {{stack memory}}
}

Borrowed<Role> tableOfALocal()
{
    const std::array table{Role{"admin", Privilege::login}};
    return table; // expected-warning {{stack memory}}
}

} // namespace

int main()
{
    const auto record = TokenRequest{}.get();      // expected-warning {{temporary}}
    const auto client = TokenRequest{}.clientId(); // expected-warning {{temporary}}
    const auto type = TokenHeader{}.type();        // expected-warning {{temporary}}
    const auto text = Texts{}.begin();             // expected-warning {{temporary}}
    const std::string_view line =
        errorOfALocal().describe().view(); // expected-warning {{temporary}}
    static_cast<void>(lineOfALocal(errorOfALocal()));
    static_cast<void>(line);
    static_cast<void>(record);
    static_cast<void>(client);
    static_cast<void>(type);
    static_cast<void>(text);
    static_cast<void>(viewOfALocal());
    static_cast<void>(valueOfALocal());
    static_cast<void>(referenceToALocal());
    static_cast<void>(tableOfALocal());
    static_cast<void>(&keyOfALocal);
    return 0;
}
