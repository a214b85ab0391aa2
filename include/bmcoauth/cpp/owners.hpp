// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What the classes that own the library's results are made of. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>

namespace bmcoauth
{
inline namespace v1
{

/** What the owners of the library's results are made with; a caller has no use for it. */
namespace detail
{

/** Wipes a heap block of `size` bytes and releases it. */
struct Wiper
{
    /** In bytes. */
    std::size_t size = 0;

    /** Wipes and releases `block`. */
    void operator()(void* block) const noexcept
    {
        wipe(block, size);
        std::free(block);
    }
};

/** Releases an object by `Release`. */
template <auto Release>
struct Releaser
{
    /** Releases `object`. */
    template <typename T>
    void operator()(T* object) const noexcept
    {
        Release(object);
    }
};

/** What the owners of records and lists have in common. */
template <typename Record, auto Release>
class Owned
{
public:
    /** Takes over what a function of <bmcoauth.h> gave. */
    explicit Owned(Record* record = nullptr) noexcept : owned{record}
    {
    }

    /** The record, for functions of <bmcoauth.h>; null if there is none. It stays here. */
    [[nodiscard]] Record* get() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return owned.get();
    }
    /** Gives the record away: the caller releases it. */
    [[nodiscard]] Record* release() noexcept
    {
        return owned.release();
    }
    /** Whether there is a record. */
    explicit operator bool() const noexcept
    {
        return owned != nullptr;
    }

private:
    std::unique_ptr<Record, Releaser<Release>> owned;
};

/** What the owners of records have in common. */
template <typename Struct, auto Release>
class Record : public Owned<Struct, Release>
{
public:
    using Owned<Struct, Release>::Owned;

protected:
    /** One of the record's texts, if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    field(char* Struct::*member) const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        if (this->get() == nullptr || this->get()->*member == nullptr)
        {
            return std::nullopt;
        }
        return std::string_view{this->get()->*member};
    }
    /** One of the record's other pointers, or null. */
    template <typename T>
    [[nodiscard]] T* pointer(T* Struct::*member) const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return this->get() == nullptr ? nullptr : this->get()->*member;
    }
};

/** RecordRange looks at a null-ended array of records or texts, which must outlive it, and gives what
 *  `Make` makes of each: `for (auto one : range)`. */
template <typename Record, auto Make>
class RecordRange
{
public:
    /** Goes from record to record up to the null pointer that ends the array. */
    class Iterator
    {
    public:
        /** What `*` gives. */
        using value_type = decltype(Make(static_cast<Record*>(nullptr)));
        /** What algorithms of the standard library ask for. */
        using difference_type = std::ptrdiff_t;

        Iterator() noexcept = default;
        /** Begins at `at`. */
        explicit Iterator(Record* const* at) noexcept : here{at}
        {
        }
        /** What is made of the record here. */
        [[nodiscard]] value_type operator*() const noexcept(noexcept(Make(*here)))
        {
            return Make(*here);
        }
        /** Goes on to the next record. */
        Iterator& operator++() noexcept
        {
            ++here;
            return *this;
        }
        /** Goes on to the next record, and gives where it was. */
        // NOLINTNEXTLINE(cert-dcl21-cpp): an iterator must be assignable.
        Iterator operator++(int) noexcept
        {
            const Iterator before = *this;
            ++here;
            return before;
        }
        /** Whether both are at the same place. */
        [[nodiscard]] bool operator==(const Iterator& other) const noexcept = default;
        /** Whether all records have been seen. */
        [[nodiscard]] bool operator==(std::default_sentinel_t /*end*/) const noexcept
        {
            return here == nullptr || *here == nullptr;
        }

    private:
        Record* const* here = nullptr;
    };

    /** A null array holds no records. */
    explicit RecordRange(Record* const* array = nullptr) noexcept : first{array}
    {
    }
    /** The first record. */
    [[nodiscard]] Iterator begin() const noexcept
    {
        return first;
    }
    /** Behind the last record. */
    [[nodiscard]] static std::default_sentinel_t end() noexcept
    {
        return {};
    }
    /** Whether there is no record. */
    [[nodiscard]] bool empty() const noexcept
    {
        return first == end();
    }
    /** Counts the records. */
    [[nodiscard]] std::size_t size() const noexcept
    {
        return static_cast<std::size_t>(std::ranges::distance(first, end()));
    }

private:
    Iterator first;
};

/** An owner of what the library gave, unless that was its failure. */
template <typename Owner, typename Record>
[[nodiscard]] Expected<Owner> ownedOrRefused(Record* record)
{
    if (record == nullptr)
    {
        return Error::last();
    }
    return Owner{record};
}

/** An argument or a member by its name: a text, or none. */
struct Given
{
    /** For refusals. */
    const char* name = nullptr;
    /** The text itself. */
    std::optional<std::string_view> text;
};

/** What a function of the library makes of these texts:
 *  `made<Text>(::createRsaPublicKey, {{"n", n}, {"e", e}})`. */
template <typename Owner, typename Function, std::size_t count>
[[nodiscard]] Expected<Owner> made(Function function, const Given (&texts)[count])
{
    Arguments in;
    std::array<const char*, count> copies{};
    for (std::size_t i = 0; i < count; ++i)
    {
        copies[i] = in.maybe(texts[i].name, texts[i].text);
    }
    if (in.failed())
    {
        return in.failure();
    }
    return std::apply([&](auto... copy) { return ownedOrRefused<Owner>(function(copy...)); },
                      copies);
}

/** Refuses the first of a record's mandatory texts that is absent. */
[[nodiscard]] inline Expected<void> requireAll(std::initializer_list<Given> texts) noexcept
{
    for (const Given& member : texts)
    {
        if (!member.text)
        {
            return Error{BMCOAUTH_RULE_DOCUMENT_INCOMPLETE, member.name};
        }
    }
    return {};
}

/** The success or failure that the library tells by an int. */
[[nodiscard]] inline Expected<void> doneOrRefused(int result) noexcept
{
    if (result != 1)
    {
        return Error::last();
    }
    return {};
}

/** `text`, or nothing for null. */
[[nodiscard]] inline std::optional<std::string_view> textOrNone(const char* text) noexcept
{
    return text == nullptr ? std::nullopt : std::optional{std::string_view{text}};
}

} // namespace detail

} // namespace v1
} // namespace bmcoauth
