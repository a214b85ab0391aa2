// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Parameter lists, which all handshake messages are, over <bmcoauth/handshake_payload.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/handshake_payload.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** One parameter of a list that is to be made. */
struct Parameter
{
    /** The parameter's name. */
    std::string_view name = {};
    /** Its values. */
    Borrowed<std::string_view> values = {};
};

/** ParameterList owns a HandshakePayload: every handshake message is one. */
class ParameterList : public detail::Owned<HandshakePayload, free_handshake_payload>
{
public:
    using Owned::Owned;

    /** A list of these parameters, one at least, and of one value each at least. */
    [[nodiscard]] static Expected<ParameterList> of(std::span<const Parameter> parameters)
    {
        detail::Arguments in;
        auto* const list = in.array<HandshakePayload>("parameters", parameters.size());
        for (std::size_t i = 0; list != nullptr && i < parameters.size(); ++i)
        {
            list[i] = {in.text("parameters", parameters[i].name, static_cast<int>(i)),
                       in.texts("values", parameters[i].values)};
        }
        if (in.failed())
        {
            return in.failure();
        }
        return detail::ownedOrRefused<ParameterList>(::set_handshake_payload(list));
    }
    /** The list that the JSON text `text` holds: parse_handshake_payload. */
    [[nodiscard]] static Expected<ParameterList> parse(std::string_view text)
    {
        return detail::made<ParameterList>(::parse_handshake_payload, {{"text", text}});
    }
    /** A deep copy. */
    [[nodiscard]] Expected<ParameterList> copy() const
    {
        return detail::ownedOrRefused<ParameterList>(::set_handshake_payload(get()));
    }
    /** Its JSON text: write_handshake_payload. */
    [[nodiscard]] Expected<Text> write() const
    {
        return detail::ownedOrRefused<Text>(::write_handshake_payload(get()));
    }

    /** The first value of the parameter `name`, regardless of case. */
    [[nodiscard]] Expected<std::string> value(std::string_view name) const
    {
        detail::Arguments in;
        const char* const nameText = in.text("name", name);
        if (in.failed())
        {
            return in.failure();
        }
        std::string found;
        if (!::get_handshake_payload_paramValue(get(), nameText, found))
        {
            return Error::last();
        }
        return found;
    }
    /** All values of the parameter `name`, regardless of case: one at least. */
    [[nodiscard]] Expected<Texts> values(std::string_view name) const
    {
        detail::Arguments in;
        const char* const nameText = in.text("name", name);
        if (in.failed())
        {
            return in.failure();
        }
        char** found = nullptr;
        if (!::getChallengeValueArray(get(), nameText, &found) || found == nullptr)
        {
            return Error::last();
        }
        return Texts{found};
    }
};

/** The member names of the JSON text `text`: getKeyNames. */
[[nodiscard]] inline Expected<Texts> memberNames(std::string_view text)
{
    detail::Arguments in;
    const char* const source = in.text("text", text);
    const auto length = in.length<unsigned int>("text", text.size());
    if (in.failed())
    {
        return in.failure();
    }
    char** names = nullptr;
    if (::getKeyNames(source, length, &names) != 1)
    {
        return Error::last();
    }
    return Texts{names};
}

} // namespace v1
} // namespace bmcoauth
