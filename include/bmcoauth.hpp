// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The interface for programs in C++20 and later: header-only, over <bmcoauth.h>, whose comments say
 * what each function promises. What is different here:
 *
 * - What the library hands out has an owner: Text, Bytes, Texts, and a class for each record. They
 *   can be moved, not copied, and release by the right function; texts and bytes are wiped first.
 *   One that has been moved from is empty: what is asked of it is absent or refused.
 * - What goes in is std::string_view and std::span, borrowed for the call. The library wants texts
 *   that end with a zero byte, so each is copied and the copy wiped. A text that holds a zero byte
 *   would be cut there, and might then pass for another: it is refused (Error::zeroByte) and never
 *   cut. A default std::string_view is the empty text; what may be absent is a std::optional.
 * - A failure is an Expected without a value. The library does not tell why it refuses something,
 *   and neither does Error::refused.
 * - What a token says can be read from a VerifiedToken, and such an object comes out of a
 *   validation that succeeded, from nowhere else. See Verdict.
 *
 * Nothing here throws, whether the program is compiled with exceptions or without: what would make
 * the library throw is refused before. To read the value of an Expected that has none ends the
 * program (std::abort). Memory that runs out is an error, except where the library itself ends the
 * process, and where a function takes or gives a std::string or Json::Value, which then do what
 * they always do.
 *
 * The names lie in an inline namespace, so that a program's copies of these functions have symbols
 * of their own: they never meet those of the library, which calls its inside `bmcoauth` too, or
 * those of another version of this header in one process. Nothing but this header makes them.
 *
 * Not here is what C++ has no use for: the allocation that ends the process (o2_ff_*), the copying
 * and printing of records, the buffer that an envelope is put together in (secure_*,
 * convertHextoBinary), removeSubStr, replaceDoc, parseJWT, which is validateToken, and those that
 * always give the same (client_register, parse_register_response, validateKestRootCert).
 *
 * Who calls a function here that has to do with EC_KEY, X509 or Json::Value links libcrypto or
 * jsoncpp; pkg-config names both. */

#include <bmcoauth.h>

#include <climits>
#include <openssl/ec.h>
#include <openssl/x509.h>

#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

namespace bmcoauth
{
inline namespace v1
{

// ------------------------------------------------------------------------------------- results --

/** Why a call gave nothing. */
enum class Error
{
    refused,  /**< the library's failure: whatever its comment names */
    zeroByte, /**< a text holds a zero byte */
    tooLong,  /**< a length is beyond what the library counts */
    missing,  /**< what must be there is not: an empty key, a record's mandatory text */
    noMemory, /**< there was no memory for the copies of the arguments */
};

/** Expected is a value, or else an error: the result of everything that can fail. Ask first, by
 *  using it as a condition; `*`, `->` and `value` end the program where there is no value, and
 *  `error` where there is one. */
template <typename T, typename E = Error>
class [[nodiscard]] Expected
{
public:
    static_assert(!std::is_same_v<T, E>);

    Expected(T value) : content{std::in_place_index<0>, std::move(value)}
    {
    }
    Expected(E error) noexcept : content{std::in_place_index<1>, error}
    {
    }

    /** Whether there is a value; the object itself says so as a condition. */
    [[nodiscard]] bool hasValue() const noexcept
    {
        return content.index() == 0;
    }
    explicit operator bool() const noexcept
    {
        return hasValue();
    }

    /** The value, here and by `*` and `->`; ends the program where there is none. */
    [[nodiscard]] T& value() & noexcept
    {
        return *there(std::get_if<0>(&content));
    }
    [[nodiscard]] const T& value() const& noexcept
    {
        return *there(std::get_if<0>(&content));
    }
    [[nodiscard]] T&& value() && noexcept
    {
        return std::move(*there(std::get_if<0>(&content)));
    }
    [[nodiscard]] T& operator*() & noexcept
    {
        return value();
    }
    [[nodiscard]] const T& operator*() const& noexcept
    {
        return value();
    }
    [[nodiscard]] T&& operator*() && noexcept
    {
        return std::move(*this).value();
    }
    [[nodiscard]] T* operator->() noexcept
    {
        return &value();
    }
    [[nodiscard]] const T* operator->() const noexcept
    {
        return &value();
    }

    /** The error; ends the program where there is a value. */
    [[nodiscard]] E error() const noexcept
    {
        return *there(std::get_if<1>(&content));
    }

    /** The value, or `other` where there is none. */
    [[nodiscard]] T valueOr(T other) &&
    {
        return hasValue() ? std::move(*this).value() : std::move(other);
    }

    /** What `next`, which gives an Expected, makes of the value; the error stays what it is. */
    template <typename Next>
    [[nodiscard]] std::invoke_result_t<Next, T&&> andThen(Next&& next) &&
    {
        if (!hasValue())
        {
            return error();
        }
        return std::forward<Next>(next)(std::move(*this).value());
    }

private:
    template <typename Alternative>
    [[nodiscard]] static Alternative* there(Alternative* alternative) noexcept
    {
        if (alternative == nullptr)
        {
            std::abort();
        }
        return alternative;
    }

    std::variant<T, E> content;
};

/** What can fail and has nothing to give. */
template <typename E>
class [[nodiscard]] Expected<void, E>
{
public:
    Expected() noexcept = default;
    Expected(E error) noexcept : failure{error}
    {
    }

    /** Whether it went well; the object itself says so as a condition. */
    [[nodiscard]] bool hasValue() const noexcept
    {
        return !failure.has_value();
    }
    explicit operator bool() const noexcept
    {
        return hasValue();
    }
    /** The error; ends the program where there is none. */
    [[nodiscard]] E error() const noexcept
    {
        if (!failure)
        {
            std::abort();
        }
        return *failure;
    }

private:
    std::optional<E> failure;
};

/** Texts and bytes that are borrowed for a call. */
using TextSpan = std::span<const std::string_view>;
using ByteSpan = std::span<const unsigned char>;

// -------------------------------------------------------------------------------------- inside --

/** What the rest of this header is made with; a caller has no use for it. */
namespace detail
{

/** Clears memory that is not looked at any more, which a compiler would leave out. */
inline void wipe(void* data, std::size_t size) noexcept
{
    if (data == nullptr)
    {
        return;
    }
#if defined(__GNUC__)
    std::memset(data, 0, size);
    // The memory counts as read here.
    __asm__ __volatile__("" : : "r"(data) : "memory");
#else
    volatile unsigned char* byte = static_cast<unsigned char*>(data);
    for (; size != 0; --size)
    {
        *byte++ = 0;
    }
#endif
}

/** Arguments holds the copies that a call passes on, with a zero byte behind each text, and wipes
 *  them afterwards. The first thing that goes wrong is kept: ask for `failure` once, before the
 *  call, since everything that is made after a failure is null. */
class Arguments
{
public:
    Arguments() noexcept = default;
    Arguments(const Arguments&) = delete;
    Arguments(Arguments&&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    Arguments& operator=(Arguments&&) = delete;
    ~Arguments()
    {
        while (chunks != nullptr)
        {
            Chunk* const next = chunks->next;
            wipe(chunks, chunks->size);
            std::free(chunks);
            chunks = next;
        }
        wipe(first.data(), firstUsed);
    }

    [[nodiscard]] char* text(std::string_view text) noexcept
    {
        if (text.find('\0') != std::string_view::npos)
        {
            return fail(Error::zeroByte);
        }
        auto* const copy = static_cast<char*>(take(text.size(), 1, 1));
        if (copy != nullptr)
        {
            if (!text.empty())
            {
                std::memcpy(copy, text.data(), text.size());
            }
            copy[text.size()] = '\0';
        }
        return copy;
    }
    /** Null for an absent text. */
    [[nodiscard]] char* maybe(const std::optional<std::string_view>& given) noexcept
    {
        return given ? text(*given) : nullptr;
    }

    /** The decimal text of `number`. */
    [[nodiscard]] char* decimal(std::uint64_t number) noexcept
    {
        std::array<char, 20> digits{};
        const std::to_chars_result end =
            std::to_chars(digits.data(), digits.data() + digits.size(), number);
        return text(
            std::string_view{digits.data(), static_cast<std::size_t>(end.ptr - digits.data())});
    }

    /** `count` zeroed objects and one more, which ends the array. */
    template <typename T>
    [[nodiscard]] T* array(std::size_t count) noexcept
    {
        static_assert(std::is_trivially_default_constructible_v<T> &&
                      std::is_trivially_destructible_v<T>);
        // NOLINTNEXTLINE(bugprone-sizeof-expression): some are arrays of pointers.
        constexpr std::size_t one = sizeof(T);
        if (count > PTRDIFF_MAX / one - 1)
        {
            return fail(Error::tooLong);
        }
        void* const objects = take(count * one, one, alignof(T));
        if (objects == nullptr)
        {
            return nullptr;
        }
        std::memset(objects, 0, (count + 1) * one);
        return static_cast<T*>(objects);
    }

    /** A null-ended array of these texts, of `char*` or `const char*`. */
    template <typename Pointer = char*>
    [[nodiscard]] Pointer* texts(TextSpan texts) noexcept
    {
        Pointer* const copies = array<Pointer>(texts.size());
        for (std::size_t i = 0; copies != nullptr && i < texts.size(); ++i)
        {
            copies[i] = text(texts[i]);
        }
        return copies;
    }
    /** The same, and null for none, where the library takes a null pointer for that. */
    template <typename Pointer = char*>
    [[nodiscard]] Pointer* textsOrNull(TextSpan list) noexcept
    {
        return list.empty() ? nullptr : texts<Pointer>(list);
    }

    /** A length as the library counts it. */
    template <typename Count>
    [[nodiscard]] Count length(std::size_t size) noexcept
    {
        if (size > static_cast<std::size_t>(INT_MAX))
        {
            fail(Error::tooLong);
            return 0;
        }
        return static_cast<Count>(size);
    }

    /** Null, for the callers here that give back a pointer. */
    std::nullptr_t fail(Error error) noexcept
    {
        if (!failed)
        {
            failed = true;
            problem = error;
        }
        return nullptr;
    }

    [[nodiscard]] std::optional<Error> failure() const noexcept
    {
        return failed ? std::optional{problem} : std::nullopt;
    }

private:
    struct Chunk
    {
        Chunk* next;
        std::size_t size;
    };

    /** Room for `size` bytes and `more`, which does not count as too long by itself. */
    [[nodiscard]] void* take(std::size_t size, std::size_t more, std::size_t alignment) noexcept
    {
        if (failed)
        {
            return nullptr;
        }
        if (size > static_cast<std::size_t>(INT_MAX) - more)
        {
            return fail(Error::tooLong);
        }
        const std::size_t wanted = size + more;
        std::size_t start = (used + alignment - 1) & ~(alignment - 1);
        if (start > room || wanted > room - start)
        {
            if (!enlarge(wanted))
            {
                return nullptr;
            }
            start = 0;
        }
        used = start + wanted;
        if (chunks == nullptr)
        {
            firstUsed = used;
        }
        return current + start;
    }

    [[nodiscard]] bool enlarge(std::size_t wanted) noexcept
    {
        // Malloc aligns for everything, and this header of a chunk keeps the alignment.
        constexpr std::size_t header =
            (sizeof(Chunk) + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
        constexpr std::size_t usual = 4096 - header;
        const std::size_t size = wanted > usual ? wanted : usual;
        void* const block = std::malloc(header + size);
        if (block == nullptr)
        {
            fail(Error::noMemory);
            return false;
        }
        chunks = new (block) Chunk{chunks, header + size};
        current = static_cast<unsigned char*>(block) + header;
        room = size;
        used = 0;
        return true;
    }

    // Most calls need no more, and so no memory of the heap.
    alignas(std::max_align_t) std::array<unsigned char, 1024> first{};
    std::size_t firstUsed = 0;
    unsigned char* current = first.data();
    std::size_t room = first.size();
    std::size_t used = 0;
    Chunk* chunks = nullptr;
    // Kept as an optional, GCC 12 warns of its value where the sanitizers are on.
    bool failed = false;
    Error problem = Error::refused;
};

/** Wipes a heap block of `size` bytes and releases it. */
struct Wiper
{
    std::size_t size = 0;

    void operator()(void* block) const noexcept
    {
        wipe(block, size);
        std::free(block);
    }
};

template <auto Release>
struct Releaser
{
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
    [[nodiscard]] Record* get() const noexcept
    {
        return owned.get();
    }
    /** Gives the record away: the caller releases it. */
    [[nodiscard]] Record* release() noexcept
    {
        return owned.release();
    }
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
    [[nodiscard]] std::optional<std::string_view> field(char* Struct::*member) const noexcept
    {
        if (this->get() == nullptr || this->get()->*member == nullptr)
        {
            return std::nullopt;
        }
        return std::string_view{this->get()->*member};
    }
    /** One of the record's other pointers, or null. */
    template <typename T>
    [[nodiscard]] T* pointer(T* Struct::*member) const noexcept
    {
        return this->get() == nullptr ? nullptr : this->get()->*member;
    }
};

/** An owner of what the library gave, unless that was its failure. */
template <typename Owner, typename Record>
[[nodiscard]] Expected<Owner> ownedOrRefused(Record* record)
{
    if (record == nullptr)
    {
        return Error::refused;
    }
    return Owner{record};
}

/** What a function of the library makes of these texts, each given or absent. */
template <typename Owner, typename Function, typename... Given>
[[nodiscard]] Expected<Owner> made(Function function, const Given&... texts)
{
    Arguments in;
    const std::array<const char*, sizeof...(texts)> copies{in.maybe(texts)...};
    if (in.failure())
    {
        return *in.failure();
    }
    return std::apply([&](auto... copy) { return ownedOrRefused<Owner>(function(copy...)); },
                      copies);
}

/** The success or failure that the library tells by an int. */
[[nodiscard]] inline Expected<void> doneOrRefused(int result) noexcept
{
    if (result != 1)
    {
        return Error::refused;
    }
    return {};
}

[[nodiscard]] inline std::optional<std::string_view> textOrNone(const char* text) noexcept
{
    return text == nullptr ? std::nullopt : std::optional{std::string_view{text}};
}

} // namespace detail

// ------------------------------------------------------------------------------ texts and bytes --

/** Text owns a text of the library. It may be a secret, and is wiped when it is released. */
class Text
{
public:
    /** Takes over a text that is released with `free`. */
    explicit Text(char* text = nullptr) noexcept
        : owned{text, detail::Wiper{text == nullptr ? 0 : std::strlen(text)}}
    {
    }

    /** A copy of `text`. */
    [[nodiscard]] static Expected<Text> copy(std::string_view text)
    {
        if (text.find('\0') != std::string_view::npos)
        {
            return Error::zeroByte;
        }
        if (text.size() >= static_cast<std::size_t>(INT_MAX))
        {
            return Error::tooLong;
        }
        auto* const made = static_cast<char*>(std::malloc(text.size() + 1));
        if (made == nullptr)
        {
            return Error::noMemory;
        }
        if (!text.empty())
        {
            std::memcpy(made, text.data(), text.size());
        }
        made[text.size()] = '\0';
        return Text{made};
    }

    /** The text, as long as this object lives. */
    [[nodiscard]] std::string_view view() const noexcept
    {
        return owned ? std::string_view{owned.get(), owned.get_deleter().size} : std::string_view{};
    }
    operator std::string_view() const noexcept
    {
        return view();
    }
    /** With a zero byte behind it, and never null. */
    // NOLINTNEXTLINE(readability-identifier-naming): what all texts call it.
    [[nodiscard]] const char* c_str() const noexcept
    {
        return owned ? owned.get() : "";
    }
    /** Gives the text away: the caller releases it with `free`. */
    [[nodiscard]] char* release() noexcept
    {
        return owned.release();
    }

private:
    std::unique_ptr<char, detail::Wiper> owned;
};

/** Bytes owns bytes of the library, which may be a secret: it is wiped when it is released. */
class Bytes
{
public:
    Bytes() noexcept = default;
    /** Takes over `size` bytes that are released with `free`. */
    Bytes(void* data, std::size_t size) noexcept
        : owned{static_cast<unsigned char*>(data), detail::Wiper{data == nullptr ? 0 : size}}
    {
    }

    /** A copy of `bytes`. */
    [[nodiscard]] static Expected<Bytes> copy(ByteSpan bytes)
    {
        void* const made = std::malloc(bytes.empty() ? 1 : bytes.size());
        if (made == nullptr)
        {
            return Error::noMemory;
        }
        if (!bytes.empty())
        {
            std::memcpy(made, bytes.data(), bytes.size());
        }
        return Bytes{made, bytes.size()};
    }

    /** The bytes, as long as this object lives. */
    [[nodiscard]] ByteSpan span() const noexcept
    {
        return owned ? ByteSpan{owned.get(), owned.get_deleter().size} : ByteSpan{};
    }
    operator ByteSpan() const noexcept
    {
        return span();
    }
    /** The first byte; null if there are none. */
    [[nodiscard]] unsigned char* data() noexcept
    {
        return owned.get();
    }
    /** The bytes as a text, which may hold any. */
    [[nodiscard]] std::string_view view() const noexcept
    {
        const void* const data = owned.get();
        return {static_cast<const char*>(data), span().size()};
    }

private:
    std::unique_ptr<unsigned char, detail::Wiper> owned;
};

/** TextRange looks at a string array, which must outlive it: `for (std::string_view text : range)`.
 */
class TextRange
{
public:
    /** Goes from text to text up to the null pointer that ends the array. */
    class Iterator
    {
    public:
        using value_type = std::string_view;
        using difference_type = std::ptrdiff_t;

        Iterator() noexcept = default;
        explicit Iterator(const char* const* at) noexcept : here{at}
        {
        }
        [[nodiscard]] std::string_view operator*() const noexcept
        {
            const char* const text = *here;
            return text == nullptr ? std::string_view{} : std::string_view{text};
        }
        Iterator& operator++() noexcept
        {
            ++here;
            return *this;
        }
        // NOLINTNEXTLINE(cert-dcl21-cpp): an iterator must be assignable.
        Iterator operator++(int) noexcept
        {
            const Iterator before = *this;
            ++here;
            return before;
        }
        [[nodiscard]] bool operator==(const Iterator& other) const noexcept = default;
        [[nodiscard]] bool operator==(std::default_sentinel_t /*end*/) const noexcept
        {
            return here == nullptr || *here == nullptr;
        }

    private:
        const char* const* here = nullptr;
    };

    /** A null array holds no texts. */
    explicit TextRange(const char* const* array = nullptr) noexcept : first{array}
    {
    }
    [[nodiscard]] Iterator begin() const noexcept
    {
        return first;
    }
    [[nodiscard]] static std::default_sentinel_t end() noexcept
    {
        return {};
    }
    [[nodiscard]] bool empty() const noexcept
    {
        return first == end();
    }
    /** Counts the texts. */
    [[nodiscard]] std::size_t size() const noexcept
    {
        std::size_t count = 0;
        for (Iterator text = first; text != end(); ++text)
        {
            ++count;
        }
        return count;
    }
    /** Whether one of the texts is exactly `wanted`. */
    [[nodiscard]] bool contains(std::string_view wanted) const noexcept
    {
        Iterator text = first;
        while (text != end() && *text != wanted)
        {
            ++text;
        }
        return text != end();
    }

private:
    Iterator first;
};

/** Texts owns a string array. */
class Texts : public detail::Owned<char*, free_char_array>
{
public:
    using Owned::Owned;

    /** The texts, as long as this object lives. */
    [[nodiscard]] TextRange range() const& noexcept
    {
        return TextRange{get()};
    }
    [[nodiscard]] TextRange range() const&& = delete;
    [[nodiscard]] TextRange::Iterator begin() const noexcept
    {
        return TextRange::Iterator{get()};
    }
    [[nodiscard]] static std::default_sentinel_t end() noexcept
    {
        return {};
    }
    [[nodiscard]] std::size_t size() const noexcept
    {
        return TextRange{get()}.size();
    }
};

// --------------------------------------------------------------------- errors, device, encoding --

/** The document that tells a client of an error: write_oauth_error. */
[[nodiscard]] inline Expected<Text> errorDocument(oauthError code,
                                                  std::optional<std::string_view> description = {},
                                                  std::optional<std::string_view> resolution = {},
                                                  std::optional<std::string_view> uri = {})
{
    detail::Arguments in;
    const char* const descriptionText = in.maybe(description);
    const char* const resolutionText = in.maybe(resolution);
    const char* const uriText = in.maybe(uri);
    if (in.failure())
    {
        return *in.failure();
    }
    return detail::ownedOrRefused<Text>(
        ::write_oauth_error(code, descriptionText, resolutionText, uriText));
}

/** The OAuth error text of `code`, "" outside the enumeration: oauthErro_toStr. */
[[nodiscard]] inline std::string_view errorText(oauthError code)
{
    return ::oauthErro_toStr(code);
}

/** Whether the device bears the marker under which development roots are trusted: isDeviceVorn. */
[[nodiscard]] inline bool deviceIsMarked()
{
    return ::isDeviceVorn() == 1;
}

/** `count` random bytes in Base64: issueRandomToken. */
[[nodiscard]] inline Expected<Text> randomToken(unsigned int count)
{
    char* token = nullptr;
    ::issueRandomToken(&token, count);
    return detail::ownedOrRefused<Text>(token);
}

/** `count` random bytes, 16 at most, as "0x" and hexadecimal digits: issueRandomBytesInHex. */
[[nodiscard]] inline Expected<Text> randomHex(unsigned int count)
{
    std::array<char, 36> digits{};
    const bool made =
        count <= 16 && ::issueRandomBytesInHex(digits.data(), static_cast<int>(count)) == 1;
    Expected<Text> result = made ? Text::copy(digits.data()) : Expected<Text>{Error::refused};
    detail::wipe(digits.data(), digits.size());
    return result;
}

/** Standard Base64 with padding, in one line: base64encode. */
[[nodiscard]] inline Expected<Text> base64(ByteSpan bytes)
{
    if (bytes.size() > static_cast<std::size_t>(INT_MAX))
    {
        return Error::tooLong;
    }
    char* text = nullptr;
    // No bytes may well have no address.
    const void* const data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    if (::base64encode(data, &text, static_cast<int>(bytes.size())) != 1)
    {
        return Error::refused;
    }
    return Text{text};
}

/** Base64url without padding: base64encode, then base64URIencode. */
[[nodiscard]] inline Expected<Text> base64Url(ByteSpan bytes)
{
    return base64(bytes).andThen([](Text text) -> Expected<Text> {
        char* const raw = text.release();
        static_cast<void>(::base64URIencode(raw));
        return Text{raw};
    });
}

/** The bytes of a Base64url or Base64 text, one at least: base64URIdecode. */
[[nodiscard]] inline Expected<Bytes> decodeBase64Url(std::string_view text)
{
    detail::Arguments in;
    const char* const encoded = in.text(text);
    if (in.failure())
    {
        return *in.failure();
    }
    char* bytes = nullptr;
    int length = 0;
    if (::base64URIdecode(encoded, &bytes, &length) != 1)
    {
        return Error::refused;
    }
    return Bytes{bytes, static_cast<std::size_t>(length)};
}

// ------------------------------------------------------------------------------- JSON documents --

/** Document owns a JSON object as text, in the library's compact form, and reads and changes its
 *  members one by one (<bmcoauth/document.h>). Each call parses the text anew. */
class Document
{
public:
    /** Refused if `text` is no JSON object. */
    [[nodiscard]] static Expected<Document> parse(std::string_view text)
    {
        Expected<Text> copied = Text::copy(text);
        if (!copied)
        {
            return copied.error();
        }
        Document document{std::move(*copied)};
        // The other document changes nothing; that this one parses is what is asked.
        if (const Expected<void> parsed = document.merge("{}"); !parsed)
        {
            return parsed.error();
        }
        return document;
    }

    /** The document, as long as it is not changed. */
    [[nodiscard]] std::string_view view() const noexcept
    {
        return text.view();
    }

    /** The string `key`, cut at the first zero byte that it holds. */
    [[nodiscard]] Expected<Text> string(std::string_view key) const
    {
        return read<Text>(::get_value_char, key);
    }
    /** The strings of the array `key`. */
    [[nodiscard]] Expected<Texts> strings(std::string_view key) const
    {
        return read<Texts>(::get_value_chararray, key);
    }
    /** The objects of the array `key`, each as text. */
    [[nodiscard]] Expected<Texts> objects(std::string_view key) const
    {
        return read<Texts>(::get_value_objarray, key);
    }
    /** The Boolean `key`. */
    [[nodiscard]] Expected<bool> boolean(std::string_view key) const
    {
        return read<bool>(::get_value_bool, key);
    }
    /** The integer `key`, up to 4294967295. */
    [[nodiscard]] Expected<unsigned int> number(std::string_view key) const
    {
        return read<unsigned int>(::get_value_uint, key);
    }

    /** Sets the member `key` to the string `value`, whatever it was before: set_value_char. A
     *  change that fails leaves the document as it was. */
    Expected<void> setString(std::string_view key, std::string_view value)
    {
        detail::Arguments in;
        const char* const name = in.text(key);
        const char* const valueText = in.text(value);
        return change(in, [&](char** raw) { return ::set_value_char(raw, name, valueText); });
    }
    /** Sets the member `key` to an array of these strings: set_value_chararray. */
    Expected<void> setStrings(std::string_view key, TextSpan values)
    {
        detail::Arguments in;
        const char* const name = in.text(key);
        char** const array = in.texts(values);
        return change(
            in, [&](char** document) { return ::set_value_chararray(document, name, array); });
    }
    /** Takes the member `key` out, if it is there. */
    Expected<void> remove(std::string_view key)
    {
        detail::Arguments in;
        const char* const name = in.text(key);
        return change(in, [&](char** raw) { return ::set_value_char(raw, name, nullptr); });
    }
    /** Merges the members of the JSON object `other` into this one: merge_doc. */
    Expected<void> merge(std::string_view other)
    {
        detail::Arguments in;
        const char* const otherText = in.text(other);
        return change(in, [&](char** raw) { return ::merge_doc(raw, otherText); });
    }
    /** Where this is an EC or RSA JSON Web Key, adds its public key in PEM form, by which delegated
     *  tokens are verified: appendPublicKey. */
    Expected<void> addPublicKey()
    {
        detail::Arguments none;
        return change(none, [](char** raw) { return ::appendPublicKey(raw); });
    }

private:
    explicit Document(Text owned) noexcept : text{std::move(owned)}
    {
    }

    template <typename Owner, typename Raw>
    [[nodiscard]] Expected<Owner> read(int (*reader)(const char*, const char*, Raw*),
                                       std::string_view key) const
    {
        detail::Arguments in;
        const char* const name = in.text(key);
        if (in.failure())
        {
            return *in.failure();
        }
        Raw value{};
        if (reader(text.c_str(), name, &value) != 1)
        {
            return Error::refused;
        }
        return Owner{value};
    }

    template <typename Call>
    [[nodiscard]] Expected<void> change(const detail::Arguments& in, const Call& call)
    {
        if (in.failure())
        {
            return *in.failure();
        }
        char* raw = text.release();
        const int result = call(&raw);
        text = Text{raw};
        return detail::doneOrRefused(result);
    }

    Text text;
};

/** parseJson and the read* functions are loadJsonDoc and the json_to_* functions of
 *  <bmcoauth/json.h>, on documents of jsoncpp. A `document` that is neither an object nor null,
 *  for which those throw, is refused. NOTE: as there, a member that is missing is added as null. */
[[nodiscard]] inline Expected<Json::Value> parseJson(std::string_view text)
{
    detail::Arguments in;
    const char* const source = in.text(text);
    if (in.failure())
    {
        return *in.failure();
    }
    Json::Value document;
    if (!::loadJsonDoc(source, document))
    {
        return Error::refused;
    }
    return document;
}

/** The compact text of `tree`: json_fastWriter. */
[[nodiscard]] inline Expected<std::string> jsonText(const Json::Value& tree)
{
    std::string text = ::json_fastWriter(tree);
    if (text.empty())
    {
        return Error::noMemory;
    }
    return text;
}

namespace detail
{

template <auto Reader, typename Raw, typename Owner>
[[nodiscard]] Expected<Owner> readMember(Json::Value& document, std::string_view key)
{
    Arguments in;
    const char* const name = in.text(key);
    if (in.failure())
    {
        return *in.failure();
    }
    if (!document.isObject() && !document.isNull())
    {
        return Error::refused;
    }
    Raw value{};
    if (Reader(document, name, &value) != 1)
    {
        return Error::refused;
    }
    return Owner{value};
}

} // namespace detail

/** json_to_char */
[[nodiscard]] inline Expected<Text> readString(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_char, char*, Text>(document, key);
}
/** json_to_char_array */
[[nodiscard]] inline Expected<Texts> readStrings(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_char_array, char**, Texts>(document, key);
}
/** json_to_obj */
[[nodiscard]] inline Expected<Text> readObject(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_obj, char*, Text>(document, key);
}
/** json_to_obj_array */
[[nodiscard]] inline Expected<Texts> readObjects(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_obj_array, char**, Texts>(document, key);
}
/** json_to_bool */
[[nodiscard]] inline Expected<bool> readBoolean(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_bool, bool, bool>(document, key);
}
/** json_to_uint */
[[nodiscard]] inline Expected<unsigned int> readNumber(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_uint, unsigned int, unsigned int>(document, key);
}
/** json_to_uint64 */
[[nodiscard]] inline Expected<unsigned long long> readLongNumber(Json::Value& document,
                                                                 std::string_view key)
{
    return detail::readMember<::json_to_uint64, unsigned long long, unsigned long long>(document,
                                                                                        key);
}
/** Merges `source` into `destination`, both objects: update. */
inline Expected<void> merge(Json::Value& destination, Json::Value& source)
{
    if (!destination.isObject() || !source.isObject())
    {
        return Error::refused;
    }
    ::update(destination, source);
    return {};
}

// ------------------------------------------------------------------------------- parameter lists --

/** One parameter of a list that is to be made. */
struct Parameter
{
    std::string_view name = {};
    TextSpan values = {};
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
        auto* const list = in.array<HandshakePayload>(parameters.size());
        for (std::size_t i = 0; list != nullptr && i < parameters.size(); ++i)
        {
            list[i] = {in.text(parameters[i].name), in.texts(parameters[i].values)};
        }
        if (in.failure())
        {
            return *in.failure();
        }
        return detail::ownedOrRefused<ParameterList>(::set_handshake_payload(list));
    }
    /** parse_handshake_payload */
    [[nodiscard]] static Expected<ParameterList> parse(std::string_view text)
    {
        return detail::made<ParameterList>(::parse_handshake_payload, text);
    }
    /** A deep copy. */
    [[nodiscard]] Expected<ParameterList> copy() const
    {
        return detail::ownedOrRefused<ParameterList>(::set_handshake_payload(get()));
    }
    /** write_handshake_payload */
    [[nodiscard]] Expected<Text> write() const
    {
        return detail::ownedOrRefused<Text>(::write_handshake_payload(get()));
    }

    /** The first value of the parameter `name`, in any case. */
    [[nodiscard]] Expected<std::string> value(std::string_view name) const
    {
        detail::Arguments in;
        const char* const nameText = in.text(name);
        if (in.failure())
        {
            return *in.failure();
        }
        std::string found;
        if (!::get_handshake_payload_paramValue(get(), nameText, found))
        {
            return Error::refused;
        }
        return found;
    }
    /** All values of the parameter `name`, in any case; there is one at least. */
    [[nodiscard]] Expected<Texts> values(std::string_view name) const
    {
        detail::Arguments in;
        const char* const nameText = in.text(name);
        if (in.failure())
        {
            return *in.failure();
        }
        char** found = nullptr;
        if (!::getChallengeValueArray(get(), nameText, &found) || found == nullptr)
        {
            return Error::refused;
        }
        return Texts{found};
    }
};

/** The member names of the JSON text `text`: getKeyNames. */
[[nodiscard]] inline Expected<Texts> memberNames(std::string_view text)
{
    detail::Arguments in;
    const char* const source = in.text(text);
    const auto length = in.length<unsigned int>(text.size());
    if (in.failure())
    {
        return *in.failure();
    }
    char** names = nullptr;
    if (::getKeyNames(source, length, &names) != 1)
    {
        return Error::refused;
    }
    return Texts{names};
}

// ------------------------------------------------------------------------------------------ keys --

// EC_KEY is marked deprecated; the interface holds it, so that its users need not hear of it.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

/** An owner of OpenSSL's EC_KEY. */
struct EcKeyReleaser
{
    void operator()(EC_KEY* key) const noexcept
    {
        EC_KEY_free(key);
    }
};
using EcKey = std::unique_ptr<EC_KEY, EcKeyReleaser>;

/** An owner of OpenSSL's X509. */
struct CertificateReleaser
{
    void operator()(X509* certificate) const noexcept
    {
        X509_free(certificate);
    }
};
using Certificate = std::unique_ptr<X509, CertificateReleaser>;

/** PrivateKey owns the key with which a service or a device signs and opens envelopes: P-256, an
 *  ECPrivateKey structure (RFC 5915). It is wiped when it is released. The library looks at it when
 *  it is used, and refuses it then if it is of no use. */
class PrivateKey
{
public:
    /** Copies the DER bytes; there is one at least. */
    [[nodiscard]] static Expected<PrivateKey> fromDer(ByteSpan der)
    {
        if (der.empty())
        {
            return Error::missing;
        }
        if (der.size() > static_cast<std::size_t>(INT_MAX))
        {
            return Error::tooLong;
        }
        return Bytes::copy(der).andThen(
            [](Bytes copied) -> Expected<PrivateKey> { return PrivateKey{std::move(copied)}; });
    }

    /** Reads the PEM file `path`, which holds a private key on any curve, not encrypted. */
    [[nodiscard]] static Expected<PrivateKey> fromFile(std::string_view path)
    {
        detail::Arguments in;
        const char* const pathText = in.text(path);
        if (in.failure())
        {
            return *in.failure();
        }
        const EcKey key{::getECKeyFromFile(pathText)};
        const int size = key ? i2d_ECPrivateKey(key.get(), nullptr) : 0;
        if (size <= 0)
        {
            return Error::refused;
        }
        Bytes der{std::malloc(static_cast<std::size_t>(size)), static_cast<std::size_t>(size)};
        if (der.span().empty())
        {
            return Error::noMemory;
        }
        unsigned char* behind = der.data();
        if (i2d_ECPrivateKey(key.get(), &behind) != size)
        {
            return Error::refused;
        }
        return PrivateKey{std::move(der)};
    }

    /** Empty only after it has been moved from. */
    [[nodiscard]] ByteSpan der() const noexcept
    {
        return bytes.span();
    }

private:
    friend struct KeyPair;

    explicit PrivateKey(Bytes der) noexcept : bytes{std::move(der)}
    {
    }

    Bytes bytes;
};

/** A new key pair: the private key, and its public point, uncompressed (SEC 1, section 2.3.3). */
struct KeyPair
{
    PrivateKey privateKey;
    Bytes publicPoint;

    /** generateECKey */
    [[nodiscard]] static Expected<KeyPair> generate()
    {
        unsigned char* point = nullptr;
        unsigned char* der = nullptr;
        int pointLength = 0;
        int derLength = 0;
        if (::generateECKey(&point, &der, &pointLength, &derLength) != 1)
        {
            return Error::refused;
        }
        return KeyPair{PrivateKey{Bytes{der, static_cast<std::size_t>(derLength)}},
                       Bytes{point, static_cast<std::size_t>(pointLength)}};
    }
};

/** Makes the key file `path`: generateECPrivateKey. */
inline Expected<void> generateKeyFile(std::string_view path)
{
    detail::Arguments in;
    const char* const pathText = in.text(path);
    if (in.failure())
    {
        return *in.failure();
    }
    return detail::doneOrRefused(::generateECPrivateKey(pathText));
}

/** Whether the file `path` holds a sound EC private key: validateECPrivateKey. */
[[nodiscard]] inline bool keyFileIsSound(std::string_view path)
{
    detail::Arguments in;
    const char* const pathText = in.text(path);
    return !in.failure() && ::validateECPrivateKey(pathText) == 1;
}

/** The public point of the key file `path`: getECPublicKey. */
[[nodiscard]] inline Expected<Bytes> publicPointOfFile(std::string_view path)
{
    detail::Arguments in;
    const char* const pathText = in.text(path);
    if (in.failure())
    {
        return *in.failure();
    }
    unsigned char* point = nullptr;
    int length = 0;
    if (::getECPublicKey(pathText, &point, &length) != 1)
    {
        return Error::refused;
    }
    return Bytes{point, static_cast<std::size_t>(length)};
}

/** The PEM text of a public key of a JSON Web Key's numbers: createEcPublicKey. */
[[nodiscard]] inline Expected<Text> ecPublicKeyPem(std::string_view x, std::string_view y,
                                                   std::string_view curve)
{
    return detail::made<Text>(::createEcPublicKey, x, y, curve);
}
/** The same for an RSA key: createRsaPublicKey. */
[[nodiscard]] inline Expected<Text> rsaPublicKeyPem(std::string_view n, std::string_view e)
{
    return detail::made<Text>(::createRsaPublicKey, n, e);
}

/** KeyRecord owns a JSON Web Key as name/value pairs. */
class KeyRecord
{
public:
    /** Takes over what a function of <bmcoauth.h> gave. */
    explicit KeyRecord(jwk* record = nullptr) noexcept : owned{record}
    {
    }

    /** oauth2_parse_jwk */
    [[nodiscard]] static Expected<KeyRecord> parse(std::string_view text)
    {
        return detail::made<KeyRecord>(::oauth2_parse_jwk, text);
    }
    /** A key of the type "DFS" that holds a shared secret: encode_dfs_jwk. */
    [[nodiscard]] static Expected<KeyRecord> sharedSecret(ByteSpan secret)
    {
        detail::Arguments in;
        const int length = in.length<int>(secret.size());
        if (in.failure())
        {
            return *in.failure();
        }
        return detail::ownedOrRefused<KeyRecord>(::encode_dfs_jwk(addressOf(secret), length));
    }
    /** A key that holds `data` in its member `member`: encode_cert_jwk. */
    [[nodiscard]] static Expected<KeyRecord> of(std::string_view type,
                                                std::optional<std::string_view> keyId,
                                                std::string_view member, ByteSpan data)
    {
        detail::Arguments in;
        const char* const typeText = in.text(type);
        const char* const keyIdText = in.maybe(keyId);
        const char* const memberText = in.text(member);
        const int length = in.length<int>(data.size());
        if (in.failure())
        {
            return *in.failure();
        }
        return detail::ownedOrRefused<KeyRecord>(
            ::encode_cert_jwk(typeText, keyIdText, memberText, addressOf(data), length));
    }

    /** The text of the first member of this name; it lives as long as the record. */
    [[nodiscard]] std::optional<std::string_view> member(std::string_view name) const noexcept
    {
        detail::Arguments in;
        const char* const nameText = in.text(name);
        return in.failure() ? std::nullopt
                            : detail::textOrNone(::jwk_key_value(owned.get(), nameText));
    }
    /** The bytes of a shared secret: decode_dfs_jwk. */
    [[nodiscard]] Expected<Bytes> secret() const
    {
        int length = 0;
        unsigned char* const bytes = ::decode_dfs_jwk(owned.get(), &length);
        if (bytes == nullptr)
        {
            return Error::refused;
        }
        return Bytes{bytes, static_cast<std::size_t>(length)};
    }

    /** The first pair, for functions of <bmcoauth.h>; null if there is none. It stays here. */
    [[nodiscard]] jwk* get() const noexcept
    {
        return owned.get();
    }

private:
    struct Release
    {
        void operator()(jwk* record) const noexcept
        {
            ::free_jwk(&record);
        }
    };

    [[nodiscard]] static const unsigned char* addressOf(ByteSpan bytes) noexcept
    {
        static constexpr unsigned char none = 0;
        return bytes.empty() ? &none : bytes.data();
    }

    std::unique_ptr<jwk, Release> owned;
};

/** KeyList owns a list of keys. */
class KeyList : public detail::Owned<jwk*, free_jwk_list>
{
public:
    using Owned::Owned;

    /** Copies of these keys, of each the members before the first that is not a string:
     *  set_jwk_list. */
    [[nodiscard]] static Expected<KeyList> of(std::span<const KeyRecord> keys)
    {
        detail::Arguments in;
        jwk** const list = in.array<jwk*>(keys.size());
        if (in.failure())
        {
            return *in.failure();
        }
        for (std::size_t i = 0; i < keys.size(); ++i)
        {
            list[i] = keys[i].get();
        }
        return detail::ownedOrRefused<KeyList>(::set_jwk_list(list));
    }
};

// ----------------------------------------------------------------------------------- certificates --

/** What verifying a chain has shown. */
enum class Chain
{
    verified,   /**< it leads to a factory root */
    refused,    /**< it does not, or a root's file is not there */
    unreadable, /**< there is no chain, or a certificate that takes part cannot be read */
};

/** CertificateKey owns a certificate key, a parameter list whose "x5c" values are a chain.
 *
 *  NOTE: names and public keys are those of the first certificate, and verifyChain verifies the
 *  last one; see <bmcoauth/x509.h>. */
class CertificateKey
{
public:
    /** A key of the PEM chain `chain`: encode_x509_jwk. */
    [[nodiscard]] static Expected<CertificateKey> fromPem(std::string_view chain)
    {
        detail::Arguments in;
        const char* const pem = in.text(chain);
        const auto length = in.length<unsigned int>(chain.size());
        if (in.failure())
        {
            return *in.failure();
        }
        return detail::ownedOrRefused<ParameterList>(::encode_x509_jwk(pem, length)).andThen(made);
    }
    /** A key of its JSON text: parse_handshake_payload. */
    [[nodiscard]] static Expected<CertificateKey> parse(std::string_view text)
    {
        return ParameterList::parse(text).andThen(made);
    }

    /** The list itself, with "kty", "x5c" and what else there is. */
    [[nodiscard]] const ParameterList& parameters() const noexcept
    {
        return list;
    }

    /** The first certificate in PEM form: decode_x509_jwk. */
    [[nodiscard]] Expected<Text> pem() const
    {
        unsigned int length = 0;
        return detail::ownedOrRefused<Text>(::decode_x509_jwk(list.get(), &length));
    }
    /** Whether the chain verifies, and the first certificate has the common name: see
     *  validate_x509_jwk; without a `commonName` every name will do. */
    [[nodiscard]] bool isValid(std::optional<std::string_view> commonName = {}) const
    {
        detail::Arguments in;
        const char* const name = in.maybe(commonName);
        return !in.failure() && ::validate_x509_jwk(list.get(), name) == 1;
    }
    /** chainVerify */
    [[nodiscard]] Chain verifyChain() const
    {
        const int result = ::chainVerify(list.get());
        if (result < 0)
        {
            return Chain::unreadable;
        }
        return result == 1 ? Chain::verified : Chain::refused;
    }

private:
    explicit CertificateKey(ParameterList parameters) noexcept : list{std::move(parameters)}
    {
    }
    [[nodiscard]] static Expected<CertificateKey> made(ParameterList parameters)
    {
        return CertificateKey{std::move(parameters)};
    }

    ParameterList list;
};

/** CertificateKeyList owns a list of certificate keys. */
class CertificateKeyList : public detail::Owned<HandshakePayload*, free_jwk_certs>
{
public:
    using Owned::Owned;

    /** Copies of these keys: set_jwk_certs. */
    [[nodiscard]] static Expected<CertificateKeyList> of(std::span<const CertificateKey> keys)
    {
        detail::Arguments in;
        HandshakePayload** const list = in.array<HandshakePayload*>(keys.size());
        if (in.failure())
        {
            return *in.failure();
        }
        for (std::size_t i = 0; i < keys.size(); ++i)
        {
            list[i] = keys[i].parameters().get();
        }
        return detail::ownedOrRefused<CertificateKeyList>(::set_jwk_certs(list));
    }
};

/** The PEM text of a certificate's bare Base64: recreate_x509_cert. */
[[nodiscard]] inline Expected<Text> certificatePem(std::string_view body)
{
    return detail::made<Text>(::recreate_x509_cert, body);
}

/** The certificate's common name, cut to 24 bytes: get_x509_CN. */
[[nodiscard]] inline Expected<Text> commonName(std::string_view pem)
{
    return detail::made<Text>(::get_x509_CN, pem);
}

/** Whether the certificate is readable and, where one is given, bears the common name:
 *  validateX509. */
[[nodiscard]] inline bool isCertificate(std::string_view pem,
                                        std::optional<std::string_view> commonName = {})
{
    detail::Arguments in;
    const char* const pemText = in.text(pem);
    const char* const name = in.maybe(commonName);
    return !in.failure() && ::validateX509(pemText, name) == 1;
}

/** The first certificate of a PEM text: getX509Cert. */
[[nodiscard]] inline Expected<Certificate> readCertificate(std::string_view pem)
{
    return detail::made<Certificate>(::getX509Cert, pem);
}

/** The EC public key of a certificate, which is not verified: get_EC_pubKey. */
[[nodiscard]] inline Expected<EcKey> ecKeyOfCertificate(std::string_view pem)
{
    return detail::made<EcKey>(::get_EC_pubKey, pem);
}

/** The private key as OpenSSL's object: get_EC_privKey. */
[[nodiscard]] inline Expected<EcKey> ecKeyOf(const PrivateKey& key)
{
    return detail::ownedOrRefused<EcKey>(
        ::get_EC_privKey(key.der().data(), static_cast<int>(key.der().size())));
}

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// ------------------------------------------------------------------------------------- signatures --

/** The signature of `text`, DER in Base64url: signToken. */
[[nodiscard]] inline Expected<Text> sign(const std::string& text, const PrivateKey& key)
{
    if (key.der().empty())
    {
        // A null key stands for one that nobody keeps.
        return Error::missing;
    }
    return detail::ownedOrRefused<Text>(
        ::signToken(text, key.der().data(), static_cast<int>(key.der().size())));
}

/** Whether the DER `signature` signs `text` by this key: verifySignature. */
[[nodiscard]] inline bool isSignature(const std::string& text, ByteSpan signature,
                                      const PrivateKey& key)
{
    return signature.size() <= static_cast<std::size_t>(INT_MAX) &&
           ::verifySignature(text, signature.data(), static_cast<int>(signature.size()),
                             key.der().data(), static_cast<int>(key.der().size())) == 1;
}

/** The signature of a certificate proof: generateSignedResponseValue. */
[[nodiscard]] inline Expected<Text> signProof(const std::string& text, const EcKey& key)
{
    return detail::ownedOrRefused<Text>(::generateSignedResponseValue(text, key.get()));
}

/** Whether `signature`, in either Base64, signs `text` by the public key: verifyHRSignature. */
[[nodiscard]] inline bool isProof(const std::string& text, std::string_view signature,
                                  const EcKey& key)
{
    detail::Arguments in;
    char* const signatureText = in.text(signature);
    const auto length = in.length<unsigned int>(signature.size());
    return !in.failure() && ::verifyHRSignature(text, signatureText, length, key.get()) == 1;
}

// ----------------------------------------------------------------------------------------- tokens --

/** One entry of a "scope" claim that is an object: a member and its texts, one at least. */
struct ScopeEntry
{
    std::string_view name = {};
    TextSpan values = {};
};

/** What a token is issued with. Times are in seconds since the epoch; those that are absent are the
 *  current time. */
struct TokenPlan
{
    std::string_view subject = {};
    std::string_view id = {};
    std::string_view issuer = {};
    std::uint64_t expiresAt = 0;
    std::optional<std::uint64_t> issuedAt = {};
    std::optional<std::uint64_t> notBefore = {};
    std::span<const ScopeEntry> scopes = {};
    std::optional<std::string_view> keyId = {};
    /** What the header says; the signature is ECDSA with SHA-256 in any case. */
    std::string_view algorithm = "ES256";
    std::string_view type = "JWT";
};

/** TokenHeader owns the record of a token's header. */
class TokenHeader : public detail::Record<JWTHeader, free_jwt_header>
{
public:
    using Record::Record;

    /** The texts of the header; absent where they are null. */
    [[nodiscard]] std::optional<std::string_view> type() const noexcept
    {
        return field(&JWTHeader::typ);
    }
    [[nodiscard]] std::optional<std::string_view> algorithm() const noexcept
    {
        return field(&JWTHeader::alg);
    }
    [[nodiscard]] std::optional<std::string_view> keyId() const noexcept
    {
        return field(&JWTHeader::kid);
    }
};

namespace detail
{

using PayloadRecord = Owned<JWTPayload, free_jwt_payload>;

/** The scope entries of a call, borrowed as the rest of its arguments. */
[[nodiscard]] inline JWTscopes* scopeEntries(Arguments& in, std::span<const ScopeEntry> scopes)
{
    auto* const entries = in.array<JWTscopes>(scopes.size());
    for (std::size_t i = 0; entries != nullptr && i < scopes.size(); ++i)
    {
        entries[i] = {in.text(scopes[i].name), in.texts(scopes[i].values),
                      in.length<int>(scopes[i].values.size())};
    }
    return entries;
}

/** ClaimsView looks at the payload of a token: what its claims are, not whether they are true. */
class ClaimsView
{
public:
    /** The claims; absent where the token has none, or one of another type. */
    [[nodiscard]] std::optional<std::string_view> subject() const noexcept
    {
        return textOrNone(payload->sub);
    }
    [[nodiscard]] std::optional<std::string_view> issuer() const noexcept
    {
        return textOrNone(payload->iss);
    }
    [[nodiscard]] std::optional<std::string_view> id() const noexcept
    {
        return textOrNone(payload->jti);
    }
    /** The times are texts as they stand in the token. */
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept
    {
        return textOrNone(payload->iat);
    }
    [[nodiscard]] std::optional<std::string_view> expiresAt() const noexcept
    {
        return textOrNone(payload->exp);
    }
    [[nodiscard]] std::optional<std::string_view> notBefore() const noexcept
    {
        return textOrNone(payload->nbf);
    }
    [[nodiscard]] std::optional<std::string_view> actor() const noexcept
    {
        return textOrNone(payload->act);
    }
    [[nodiscard]] TextRange audiences() const noexcept
    {
        return TextRange{payload->aud};
    }
    /** The claim "ravok_roles". */
    [[nodiscard]] TextRange roles() const noexcept
    {
        return TextRange{payload->ravok_roles};
    }
    /** The claim "scope" where it is a text. */
    [[nodiscard]] TextRange scopeNames() const noexcept
    {
        return TextRange{payload->scope};
    }
    /** The claim "scope" where it is an object, or what stands for it in a delegated token. */
    [[nodiscard]] std::span<const JWTscopes> scopeEntries() const noexcept
    {
        return payload->scopes == nullptr || payload->scopes_count < 1
                   ? std::span<const JWTscopes>{}
                   : std::span<const JWTscopes>{payload->scopes,
                                                static_cast<std::size_t>(payload->scopes_count)};
    }
    /** The first value of the scope entry `name`. */
    [[nodiscard]] std::optional<std::string_view> scopeValue(std::string_view name) const noexcept
    {
        for (const JWTscopes& entry : scopeEntries())
        {
            if (entry.name != nullptr && name == entry.name)
            {
                return entry.values == nullptr || entry.count < 1 ? std::nullopt
                                                                  : textOrNone(*entry.values);
            }
        }
        return std::nullopt;
    }
    /** The JSON text of the claim "xidp". */
    [[nodiscard]] std::optional<std::string_view> identityProviders() const noexcept
    {
        return textOrNone(payload->xidp);
    }

protected:
    explicit ClaimsView(const JWTPayload& record) noexcept : payload{&record}
    {
    }

private:
    const JWTPayload* payload;
};

} // namespace detail

/** Claims are what a token says that has been found valid. They live as long as that token. */
class Claims : public detail::ClaimsView
{
private:
    friend class VerifiedToken;
    using ClaimsView::ClaimsView;
};

/** UnverifiedClaims are what somebody says: another type, so that they pass for Claims nowhere. */
class UnverifiedClaims : public detail::ClaimsView
{
private:
    friend class UnverifiedToken;
    using ClaimsView::ClaimsView;
};

/** A token that has been found valid. Only a Verdict gives one. */
class VerifiedToken
{
public:
    /** What the token says. */
    [[nodiscard]] Claims claims() const& noexcept
    {
        return Claims{*payload.get()};
    }
    [[nodiscard]] Claims claims() const&& = delete;

    /** Its header. */
    [[nodiscard]] const TokenHeader& header() const& noexcept
    {
        return head;
    }
    [[nodiscard]] const TokenHeader& header() const&& = delete;

    /** The payload, for the functions of <bmcoauth/privileges.h>. It stays here. */
    [[nodiscard]] JWTPayload* payloadRecord() const noexcept
    {
        return payload.get();
    }

private:
    friend class Verdict;

    VerifiedToken(TokenHeader headerRecord, detail::PayloadRecord payloadRecord) noexcept
        : head{std::move(headerRecord)}, payload{std::move(payloadRecord)}
    {
    }

    TokenHeader head;
    detail::PayloadRecord payload;
};

/** A token that nobody has verified, or that was refused: what it says is for logs and for finding
 *  out which key to ask, never for deciding what somebody may do. */
class UnverifiedToken
{
public:
    /** Absent where the payload could not be read, or was not looked at. */
    [[nodiscard]] std::optional<UnverifiedClaims> unverifiedClaims() const& noexcept
    {
        return payload ? std::optional{UnverifiedClaims{*payload.get()}} : std::nullopt;
    }
    [[nodiscard]] std::optional<UnverifiedClaims> unverifiedClaims() const&& = delete;

    /** Its texts are absent where the header could not be read. */
    [[nodiscard]] const TokenHeader& unverifiedHeader() const& noexcept
    {
        return head;
    }
    [[nodiscard]] const TokenHeader& unverifiedHeader() const&& = delete;

private:
    friend class Verdict;
    friend Expected<UnverifiedToken> readUnverified(std::string_view token);

    UnverifiedToken(TokenHeader headerRecord, detail::PayloadRecord payloadRecord) noexcept
        : head{std::move(headerRecord)}, payload{std::move(payloadRecord)}
    {
    }

    TokenHeader head;
    detail::PayloadRecord payload;
};

/** What a validation has found. */
enum class Judgement
{
    invalid = 0, /**< forged, malformed, not valid yet */
    valid = 1,
    expired = 2,
    failed = 3, /**< there was no memory, or the clock could not be read: nothing is known */
};

/** Who vouches for tokens that others issue: the keys by which those are verified. */
class TrustedKeys
{
public:
    /** Copies of these keys, each a public key in PEM form or a JSON Web Key that
     *  Document::addPublicKey has completed; there is one at least. NOTE: the order counts where a
     *  list mixes both, see validateJWT_Delegated. */
    [[nodiscard]] static Expected<TrustedKeys> of(TextSpan keys)
    {
        detail::Arguments in;
        char** const texts = in.texts(keys);
        if (in.failure())
        {
            return *in.failure();
        }
        Texts copies{::set_char_array(texts)};
        if (!copies)
        {
            return keys.empty() ? Error::missing : Error::noMemory;
        }
        return TrustedKeys{std::move(copies)};
    }

    /** The keys, as long as this object lives. */
    [[nodiscard]] TextRange range() const& noexcept
    {
        return copies.range();
    }
    [[nodiscard]] TextRange range() const&& = delete;

private:
    explicit TrustedKeys(Texts keys) noexcept : copies{std::move(keys)}
    {
    }

    Texts copies;
};

/** The nine privileges of the controller, by their bits. */
enum class Privilege : unsigned int
{
    login = 0x001,
    configure = 0x002,
    configureUsers = 0x004,
    clearLogs = 0x008,
    executeServerControlCommands = 0x010,
    accessConsoleRedirection = 0x020,
    accessVirtualMedia = 0x040,
    testAlerts = 0x080,
    executeDiagnosticCommands = 0x100,
};

/** A set of privileges. */
class Privileges
{
public:
    constexpr Privileges() noexcept = default;
    constexpr explicit Privileges(unsigned int bits) noexcept : mask{bits}
    {
    }
    constexpr Privileges(Privilege one) noexcept : mask{static_cast<unsigned int>(one)}
    {
    }

    /** The mask, as the functions of <bmcoauth/privileges.h> give it. */
    [[nodiscard]] constexpr unsigned int bits() const noexcept
    {
        return mask;
    }
    [[nodiscard]] constexpr bool has(Privilege one) const noexcept
    {
        return (mask & static_cast<unsigned int>(one)) != 0;
    }
    [[nodiscard]] friend constexpr Privileges operator|(Privileges left, Privileges right) noexcept
    {
        return Privileges{left.mask | right.mask};
    }
    [[nodiscard]] constexpr bool operator==(const Privileges& other) const noexcept = default;

private:
    unsigned int mask = 0;
};

[[nodiscard]] constexpr Privileges operator|(Privilege left, Privilege right) noexcept
{
    return Privileges{left} | Privileges{right};
}

/** The name of a privilege in a "scope" claim: ravok_scope_privileges. */
[[nodiscard]] inline std::string_view nameOf(Privilege privilege) noexcept
{
    return ::ravok_scope_privileges[std::countr_zero(static_cast<unsigned int>(privilege))];
}

/** A role of the service's table, and what it grants. */
struct Role
{
    std::string_view name = {};
    Privileges privileges = {};
};

/** How delegated tokens are judged. */
struct DelegationRules
{
    /** How far clocks may differ, for both ends of the period of validity. */
    unsigned int skewSeconds = 0;
    /** What the names in "ravok_roles" grant. */
    std::span<const Role> roles = {};
    /** The identity providers whose codes in "xidp" count, besides "*". */
    TextSpan providers = {};
};

namespace detail
{

[[nodiscard]] inline userRole_s* roleTable(Arguments& in, std::span<const Role> roles)
{
    auto* const table = in.array<userRole_s>(roles.size());
    for (std::size_t i = 0; table != nullptr && i < roles.size(); ++i)
    {
        table[i] = {in.text(roles[i].name), roles[i].privileges.bits()};
    }
    return table;
}

} // namespace detail

/** Verdict is what a validation has found, and keeps the token apart by it: `verified` gives a
 *  valid one, whose claims may be acted upon, and `refused` any other, whose claims can be read by
 *  functions only that say in their names what they are.
 *
 *      const bmcoauth::Verdict verdict = bmcoauth::validateToken(token, key);
 *      if (const bmcoauth::VerifiedToken* good = verdict.verified())
 *      {
 *          admit(good->claims().subject());
 *      }
 */
class [[nodiscard]] Verdict
{
public:
    /** What has been found. */
    [[nodiscard]] Judgement judgement() const noexcept
    {
        return found;
    }

    /** Whether a trusted key signed the token: it tells an expired one from a forged one. Known of
     *  delegated tokens; of others just when they are valid. */
    [[nodiscard]] bool isAuthentic() const noexcept
    {
        return authentic;
    }

    /** Null unless the token is valid. */
    [[nodiscard]] const VerifiedToken* verified() const& noexcept
    {
        return std::get_if<VerifiedToken>(&token);
    }
    [[nodiscard]] const VerifiedToken* verified() const&& = delete;

    /** The valid token itself, which outlives the verdict; absent if it is not valid. */
    [[nodiscard]] std::optional<VerifiedToken> takeVerified() && noexcept
    {
        VerifiedToken* const valid = std::get_if<VerifiedToken>(&token);
        return valid == nullptr ? std::nullopt : std::optional{std::move(*valid)};
    }

    /** Null if the token is valid. */
    [[nodiscard]] const UnverifiedToken* refused() const& noexcept
    {
        return std::get_if<UnverifiedToken>(&token);
    }
    [[nodiscard]] const UnverifiedToken* refused() const&& = delete;

private:
    friend Verdict validateToken(std::string_view token, const PrivateKey& key);
    friend Verdict validateDelegatedToken(std::string_view token, const TrustedKeys& keys,
                                          const DelegationRules& rules);

    using Token = std::variant<UnverifiedToken, VerifiedToken>;

    /** The library's result, and its records, which are taken over. */
    Verdict(int result, bool isAuthenticToken, JWTHeader* header, JWTPayload* payload) noexcept
        : found{judgementOf(result, header, payload)},
          authentic{isAuthenticToken},
          token{tokenOf(found, TokenHeader{header}, detail::PayloadRecord{payload})}
    {
    }

    /** What a failure of the arguments says about the token. */
    explicit Verdict(Error error) noexcept
        : Verdict{error == Error::noMemory ? static_cast<int>(Judgement::failed) : 0, false,
                  nullptr, nullptr}
    {
    }

    [[nodiscard]] static Judgement judgementOf(int result, const JWTHeader* header,
                                               const JWTPayload* payload) noexcept
    {
        switch (result)
        {
            case 1:
                return header != nullptr && payload != nullptr ? Judgement::valid
                                                               : Judgement::failed;
            case 2:
                return Judgement::expired;
            case 3:
                return Judgement::failed;
            default:
                return Judgement::invalid;
        }
    }

    [[nodiscard]] static Token tokenOf(Judgement judgement, TokenHeader header,
                                       detail::PayloadRecord payload) noexcept
    {
        if (judgement == Judgement::valid)
        {
            return VerifiedToken{std::move(header), std::move(payload)};
        }
        return UnverifiedToken{std::move(header), std::move(payload)};
    }

    Judgement found;
    bool authentic;
    Token token;
};

/** Issues a token: generateJWT. */
[[nodiscard]] inline Expected<Text> issueToken(const TokenPlan& plan, const PrivateKey& key)
{
    if (key.der().empty())
    {
        // A null key stands for one that nobody keeps.
        return Error::missing;
    }
    detail::Arguments in;
    const char* const type = in.text(plan.type);
    const char* const algorithm = in.text(plan.algorithm);
    const char* const keyId = in.maybe(plan.keyId);
    const char* const subject = in.text(plan.subject);
    const char* const id = in.text(plan.id);
    const char* const issuer = in.text(plan.issuer);
    const char* const issuedAt = plan.issuedAt ? in.decimal(*plan.issuedAt) : nullptr;
    const char* const notBefore = plan.notBefore ? in.decimal(*plan.notBefore) : nullptr;
    const char* const expiresAt = in.decimal(plan.expiresAt);
    JWTscopes* const scopes = detail::scopeEntries(in, plan.scopes);
    const int scopeCount = in.length<int>(plan.scopes.size());
    if (in.failure())
    {
        return *in.failure();
    }
    const TokenHeader header{::create_jwt_header(type, algorithm, keyId)};
    const detail::PayloadRecord payload{
        ::create_jwt_payload(subject, id, issuer, issuedAt, notBefore, expiresAt, nullptr, 0)};
    if (!header || !payload)
    {
        return Error::refused;
    }
    // Lent for the call: the record would release what it keeps.
    payload.get()->scopes = scopes;
    payload.get()->scopes_count = scopeCount;
    char* const token = ::generateJWT(header.get(), payload.get(), key.der().data(),
                                      static_cast<int>(key.der().size()));
    payload.get()->scopes = nullptr;
    payload.get()->scopes_count = 0;
    return detail::ownedOrRefused<Text>(token);
}

/** Judges a token that was issued with this key: validateJWT. A token that holds a zero byte is
 *  invalid. */
[[nodiscard]] inline Verdict validateToken(std::string_view token, const PrivateKey& key)
{
    detail::Arguments in;
    const char* const tokenText = in.text(token);
    if (in.failure())
    {
        return Verdict{*in.failure()};
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int result = ::validateJWT(tokenText, key.der().data(),
                                     static_cast<int>(key.der().size()), &header, &payload);
    return {result, result == 1, header, payload};
}

/** Judges a token that another party issued: validateJWT_Delegated. A token that holds a zero byte
 *  is invalid. */
[[nodiscard]] inline Verdict validateDelegatedToken(std::string_view token, const TrustedKeys& keys,
                                                    const DelegationRules& rules = {})
{
    detail::Arguments in;
    const char* const tokenText = in.text(token);
    userRole_s* const roles = detail::roleTable(in, rules.roles);
    const char** const providers = in.texts<const char*>(rules.providers);
    const auto** const trusted = in.array<const char*>(keys.range().size());
    if (in.failure())
    {
        return Verdict{*in.failure()};
    }
    const char** next = trusted;
    for (const std::string_view key : keys.range())
    {
        *next++ = key.data();
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = 0;
    const int result = ::validateJWT_Delegated(tokenText, trusted, 0, &header, &payload,
                                               rules.skewSeconds, roles, providers, &verified);
    return {result, verified == 1, header, payload};
}

/** Reads a token that nobody verifies: get_jwt_header and get_jwt_payload. */
[[nodiscard]] inline Expected<UnverifiedToken> readUnverified(std::string_view token)
{
    detail::Arguments in;
    const char* const tokenText = in.text(token);
    if (in.failure())
    {
        return *in.failure();
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    static_cast<void>(::get_jwt_header(tokenText, &header));
    TokenHeader ownedHeader{header};
    static_cast<void>(::get_jwt_payload(tokenText, &payload));
    detail::PayloadRecord ownedPayload{payload};
    if (!ownedHeader || !ownedPayload)
    {
        return Error::refused;
    }
    return UnverifiedToken{std::move(ownedHeader), std::move(ownedPayload)};
}

// ------------------------------------------------------------------------------------- privileges --

/** What the names in the token's "scope" grant: get_scope_privileges. */
[[nodiscard]] inline Privileges scopePrivileges(const VerifiedToken& token)
{
    return Privileges{::get_scope_privileges(token.payloadRecord())};
}

/** What the token's roles grant: get_roles_privileges. */
[[nodiscard]] inline Expected<Privileges> rolePrivileges(const VerifiedToken& token,
                                                         std::span<const Role> roles)
{
    detail::Arguments in;
    userRole_s* const table = detail::roleTable(in, roles);
    if (in.failure())
    {
        return *in.failure();
    }
    return Privileges{::get_roles_privileges(token.payloadRecord(), table)};
}

/** What the token's codes of these identity providers grant: get_xidp_privileges. */
[[nodiscard]] inline Expected<Privileges> providerPrivileges(const VerifiedToken& token,
                                                             TextSpan providers)
{
    detail::Arguments in;
    const char** const names = in.texts<const char*>(providers);
    if (in.failure())
    {
        return *in.failure();
    }
    return Privileges{::get_xidp_privileges(token.payloadRecord(), names)};
}

/** The privileges in the scope entry "USER_PRIV" of a valid token, where validateDelegatedToken
 *  writes what scope, roles and identity providers grant together; absent if there is no such
 *  entry. NOTE: where "scope" was an object, it is the issuer that wrote the number. */
[[nodiscard]] inline std::optional<Privileges> userPrivileges(const VerifiedToken& token) noexcept
{
    const std::optional<std::string_view> text = token.claims().scopeValue("USER_PRIV");
    unsigned int mask = 0;
    if (!text)
    {
        return std::nullopt;
    }
    const char* const end = text->data() + text->size();
    const std::from_chars_result result = std::from_chars(text->data(), end, mask);
    return result.ec == std::errc{} && result.ptr == end ? std::optional{Privileges{mask}}
                                                         : std::nullopt;
}

// ---------------------------------------------------------------------------------- authorization --

/** One entry of a policy list. */
struct Policy
{
    std::string_view name = {};
    std::string_view value = {};
};

/** What a token request is made of: a refresh token or a handshake response, and the rest. */
struct TokenRequestParts
{
    std::string_view clientId = {};
    std::string_view clientSecret = {};
    std::string_view state = {};
    std::optional<std::string_view> refreshToken = {};
    std::span<const Policy> policy = {};
    const ParameterList* handshake = nullptr;
};

/** TokenRequest owns what a client sends to the token endpoint: AuthorizeRequest. */
class TokenRequest : public detail::Record<AuthorizeRequest, free_authorize_request>
{
public:
    using Record::Record;

    /** parse_authorize_request */
    [[nodiscard]] static Expected<TokenRequest> parse(std::string_view text)
    {
        return detail::made<TokenRequest>(::parse_authorize_request, text);
    }

    /** create_authorize_request, which fails here where a part of the request cannot be copied. */
    [[nodiscard]] static Expected<TokenRequest> of(const TokenRequestParts& parts)
    {
        detail::Arguments in;
        const char* const secret = in.text(parts.clientSecret);
        const char* const id = in.text(parts.clientId);
        const char* const state = in.text(parts.state);
        const char* const refresh = in.maybe(parts.refreshToken);
        auto* const policy = in.array<KestPolicyAuth>(parts.policy.size());
        for (std::size_t i = 0; policy != nullptr && i < parts.policy.size(); ++i)
        {
            policy[i] = {in.text(parts.policy[i].name), in.text(parts.policy[i].value)};
        }
        if (in.failure())
        {
            return *in.failure();
        }
        TokenRequest request{::create_authorize_request(
            secret, id, state, nullptr, parts.policy.empty() ? nullptr : policy,
            parts.handshake == nullptr ? nullptr : parts.handshake->get(), refresh)};
        if (!request || (refresh != nullptr && !request.refreshToken()) ||
            (!parts.policy.empty() && request.get()->policy == nullptr))
        {
            return Error::refused;
        }
        return request;
    }

    /** write_authorize_request; Error::missing where that would throw. */
    [[nodiscard]] Expected<Text> write() const
    {
        if (!clientId() || !clientSecret() || !state() || hasEmptyParameter())
        {
            return Error::missing;
        }
        return detail::ownedOrRefused<Text>(::write_authorize_request(get()));
    }

    /** The texts of the record; absent where they are null. */
    [[nodiscard]] std::optional<std::string_view> clientId() const noexcept
    {
        return field(&AuthorizeRequest::client_id);
    }
    [[nodiscard]] std::optional<std::string_view> clientSecret() const noexcept
    {
        return field(&AuthorizeRequest::client_secret);
    }
    [[nodiscard]] std::optional<std::string_view> state() const noexcept
    {
        return field(&AuthorizeRequest::state);
    }
    [[nodiscard]] std::optional<std::string_view> refreshToken() const noexcept
    {
        return field(&AuthorizeRequest::refresh_token);
    }
    /** A copy of the handshake response. */
    [[nodiscard]] Expected<ParameterList> handshake() const
    {
        return detail::ownedOrRefused<ParameterList>(
            ::set_handshake_payload(pointer(&AuthorizeRequest::handshake)));
    }

private:
    [[nodiscard]] bool hasEmptyParameter() const noexcept
    {
        const HandshakePayload* parameter = pointer(&AuthorizeRequest::handshake);
        while (parameter != nullptr && parameter->name != nullptr && parameter->values != nullptr)
        {
            if (*parameter->values == nullptr)
            {
                return true;
            }
            ++parameter;
        }
        return false;
    }
};

/** What a token response is made of. */
struct TokenResponseParts
{
    std::string_view accessToken = {};
    std::string_view state = {};
    std::string_view refreshToken = {};
    std::string_view expiresIn = {};
    std::string_view tokenType = "bearer";
};

/** TokenResponse owns what the token endpoint answers: AuthorizeResponse. */
class TokenResponse : public detail::Record<AuthorizeResponse, free_authorize_response>
{
public:
    using Record::Record;

    /** parse_authorize_response */
    [[nodiscard]] static Expected<TokenResponse> parse(std::string_view text)
    {
        return detail::made<TokenResponse>(::parse_authorize_response, text);
    }
    /** create_authorize_response */
    [[nodiscard]] static Expected<TokenResponse> of(const TokenResponseParts& parts)
    {
        return detail::made<TokenResponse>(::create_authorize_response, parts.state,
                                           parts.accessToken, parts.refreshToken, parts.expiresIn,
                                           parts.tokenType);
    }

    /** write_authorize_response; Error::missing where that would throw. */
    [[nodiscard]] Expected<Text> write() const
    {
        if (!accessToken() || !state() || !refreshToken() || !expiresIn() || !tokenType())
        {
            return Error::missing;
        }
        return detail::ownedOrRefused<Text>(::write_authorize_response(get()));
    }

    /** The texts of the record; absent where they are null. */
    [[nodiscard]] std::optional<std::string_view> accessToken() const noexcept
    {
        return field(&AuthorizeResponse::access_token);
    }
    [[nodiscard]] std::optional<std::string_view> state() const noexcept
    {
        return field(&AuthorizeResponse::state);
    }
    [[nodiscard]] std::optional<std::string_view> refreshToken() const noexcept
    {
        return field(&AuthorizeResponse::refresh_token);
    }
    [[nodiscard]] std::optional<std::string_view> expiresIn() const noexcept
    {
        return field(&AuthorizeResponse::expires_in);
    }
    [[nodiscard]] std::optional<std::string_view> tokenType() const noexcept
    {
        return field(&AuthorizeResponse::token_type);
    }
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept
    {
        return field(&AuthorizeResponse::issued_at);
    }
};

/** What a token service puts into its tokens. */
struct TokenGrant
{
    /** Echoed in the response. */
    std::string_view state = {};
    /** "EC OAuth Token" and "EC" where they are absent. */
    std::optional<std::string_view> subject = {};
    std::optional<std::string_view> issuer = {};
    /** Not 0, for which the library would take an hour. */
    std::uint32_t lifetimeSeconds = 3600;
    std::string_view tokenType = "bearer";
    std::span<const ScopeEntry> scopes = {};
};

/** Issues an access token and a refresh token: authorize_client. It checks nothing about who asks
 *  for them. */
[[nodiscard]] inline Expected<TokenResponse> issueTokens(const TokenGrant& grant,
                                                         const PrivateKey& key)
{
    if (key.der().empty() || grant.lifetimeSeconds == 0)
    {
        return Error::missing;
    }
    detail::Arguments in;
    const char* const state = in.text(grant.state);
    char* const subject = in.maybe(grant.subject);
    char* const issuer = in.maybe(grant.issuer);
    const char* const lifetime = in.decimal(grant.lifetimeSeconds);
    const char* const tokenType = in.text(grant.tokenType);
    AuthorizeClaims claims{.subject = subject,
                           .issuer = issuer,
                           .scopes = detail::scopeEntries(in, grant.scopes),
                           .scope_count = in.length<int>(grant.scopes.size())};
    if (in.failure())
    {
        return *in.failure();
    }
    const TokenResponse settings{::configure_auth_response(lifetime, tokenType)};
    if (!settings)
    {
        return Error::refused;
    }
    return detail::ownedOrRefused<TokenResponse>(
        ::authorize_client(state, key.der().data(), static_cast<unsigned int>(key.der().size()),
                           settings.get(), &claims));
}

/** The response to a request as text, with an access token that nobody can ever verify, since it is
 *  signed with a key that is thrown away: client_authorize. */
[[nodiscard]] inline Expected<Text> issueUnverifiableTokens(std::string_view request)
{
    return detail::made<Text>(::client_authorize, request);
}

// ----------------------------------------------------------------------------------- registration --

/** What a registration request is made of. What may be absent is null or empty. */
struct RegistrationRequestParts
{
    TextSpan redirectUri = {};
    std::string_view clientName = {};
    std::string_view softwareId = {};
    TextSpan handshakeTypes = {};
    const KeyList* keys = nullptr;
    const CertificateKeyList* certificates = nullptr;
    const ParameterList* challenge = nullptr;
    /** Written, never read. */
    TextSpan redirectUris = {};
    std::optional<std::string_view> scope = {};
};

namespace detail
{

/** What a record holds, or null for none. */
template <typename Owner>
[[nodiscard]] auto* recordOf(const Owner* owner) noexcept
{
    return owner == nullptr ? nullptr : owner->get();
}

/** Whether a list that was given was not copied. */
[[nodiscard]] inline bool isLost(const void* given, const void* kept) noexcept
{
    return given != nullptr && kept == nullptr;
}

} // namespace detail

/** RegistrationRequest owns what a client sends to register itself: RegisterRequest. */
class RegistrationRequest : public detail::Record<RegisterRequest, free_register_request>
{
public:
    using Record::Record;

    /** parse_register_request */
    [[nodiscard]] static Expected<RegistrationRequest> parse(std::string_view text)
    {
        return detail::made<RegistrationRequest>(::parse_register_request, text);
    }

    /** create_register_request, which fails here where a list cannot be copied. */
    [[nodiscard]] static Expected<RegistrationRequest> of(const RegistrationRequestParts& parts)
    {
        detail::Arguments in;
        char** const redirectUri = in.textsOrNull(parts.redirectUri);
        const char* const clientName = in.text(parts.clientName);
        const char* const softwareId = in.text(parts.softwareId);
        char** const types = in.textsOrNull(parts.handshakeTypes);
        char** const redirectUris = in.textsOrNull(parts.redirectUris);
        if (in.failure())
        {
            return *in.failure();
        }
        jwk** const keys = detail::recordOf(parts.keys);
        HandshakePayload** const certificates = detail::recordOf(parts.certificates);
        HandshakePayload* const challenge = detail::recordOf(parts.challenge);
        RegistrationRequest request{::create_register_request(
            redirectUri, clientName, softwareId, keys, certificates, types, challenge)};
        if (!request)
        {
            return Error::refused;
        }
        RegisterRequest& record = *request.get();
        record.redirect_uris = ::set_char_array(redirectUris);
        if (parts.scope)
        {
            Expected<Text> scope = Text::copy(*parts.scope);
            if (!scope)
            {
                return scope.error();
            }
            record.scope = scope->release();
        }
        if (detail::isLost(redirectUri, record.redirect_uri) ||
            detail::isLost(types, record.handshake_types) || detail::isLost(keys, record.dfs) ||
            detail::isLost(certificates, record.software_id_cert) ||
            detail::isLost(challenge, record.handshake_challenge) ||
            detail::isLost(redirectUris, record.redirect_uris))
        {
            return Error::refused;
        }
        return request;
    }

    /** write_register_request */
    [[nodiscard]] Expected<Text> write() const
    {
        return detail::ownedOrRefused<Text>(::write_register_request(get()));
    }

    /** The texts of the record; absent where they are null. */
    [[nodiscard]] std::optional<std::string_view> clientName() const noexcept
    {
        return field(&RegisterRequest::client_name);
    }
    [[nodiscard]] std::optional<std::string_view> softwareId() const noexcept
    {
        return field(&RegisterRequest::software_id);
    }
    [[nodiscard]] TextRange redirectUri() const& noexcept
    {
        return TextRange{pointer(&RegisterRequest::redirect_uri)};
    }
    [[nodiscard]] TextRange redirectUri() const&& = delete;
    [[nodiscard]] TextRange handshakeTypes() const& noexcept
    {
        return TextRange{pointer(&RegisterRequest::handshake_types)};
    }
    [[nodiscard]] TextRange handshakeTypes() const&& = delete;
    /** A copy of the client's challenge. */
    [[nodiscard]] Expected<ParameterList> challenge() const
    {
        return detail::ownedOrRefused<ParameterList>(
            ::set_handshake_payload(pointer(&RegisterRequest::handshake_challenge)));
    }
};

/** What a registration response, or a service's template for it, is made of. */
struct RegistrationResponseParts
{
    /** In seconds; 0 for no end. */
    std::uint32_t secretLifetimeSeconds = 0;
    TextSpan grantTypes = {};
    TextSpan policiesOffered = {};
    TextSpan policiesRequired = {};
    const ParameterList* challenge = nullptr;
    const ParameterList* response = nullptr;
    std::optional<std::string_view> sealedCertificate = {};
    const CertificateKeyList* certificates = nullptr;
};

/** RegistrationResponse owns what a registering client is answered: RegisterResponse. */
class RegistrationResponse : public detail::Record<RegisterResponse, free_register_response>
{
public:
    using Record::Record;

    /** create_register_response, which fails here where a list cannot be copied. */
    [[nodiscard]] static Expected<RegistrationResponse> of(std::string_view clientSecret,
                                                           std::string_view clientId,
                                                           const RegistrationResponseParts& parts)
    {
        detail::Arguments in;
        const char* const secret = in.text(clientSecret);
        const char* const id = in.text(clientId);
        const char* const lifetime = in.decimal(parts.secretLifetimeSeconds);
        char** const grants = in.textsOrNull(parts.grantTypes);
        char** const offered = in.textsOrNull(parts.policiesOffered);
        char** const required = in.textsOrNull(parts.policiesRequired);
        const char* const sealed = in.maybe(parts.sealedCertificate);
        if (in.failure())
        {
            return *in.failure();
        }
        HandshakePayload* const challenge = detail::recordOf(parts.challenge);
        HandshakePayload* const answer = detail::recordOf(parts.response);
        HandshakePayload** const certificates = detail::recordOf(parts.certificates);
        RegistrationResponse response{
            ::create_register_response(secret, id, lifetime, grants, nullptr, offered, required,
                                       challenge, answer, sealed, certificates)};
        if (!response)
        {
            return Error::refused;
        }
        const RegisterResponse& record = *response.get();
        if (detail::isLost(grants, record.grant_types) ||
            detail::isLost(offered, record.kest_policy_auth_types) ||
            detail::isLost(required, record.kest_policy_auth_req) ||
            detail::isLost(challenge, record.handshake_challenge) ||
            detail::isLost(answer, record.handshake_response) ||
            detail::isLost(sealed, record.ssl_cert_cryptex) ||
            detail::isLost(certificates, record.software_id_cert))
        {
            return Error::refused;
        }
        return response;
    }

    /** Answers `request` with a fresh identifier and secret: register_client. */
    [[nodiscard]] static Expected<RegistrationResponse>
    answer(const RegistrationRequest& request, const RegistrationResponseParts& parts)
    {
        return of("", "", parts).andThen([&](RegistrationResponse settings) {
            return detail::ownedOrRefused<RegistrationResponse>(
                ::register_client(request.get(), settings.get()));
        });
    }

    /** write_register_response, which wants a challenge of two parameters at least; Error::missing
     *  where it would throw. */
    [[nodiscard]] Expected<Text> write() const
    {
        if (!clientSecret() || !clientId() || !secretLifetimeSeconds())
        {
            return Error::missing;
        }
        return detail::ownedOrRefused<Text>(::write_register_response(get()));
    }

    /** The texts of the record; absent where they are null. */
    [[nodiscard]] std::optional<std::string_view> clientId() const noexcept
    {
        return field(&RegisterResponse::client_id);
    }
    [[nodiscard]] std::optional<std::string_view> clientSecret() const noexcept
    {
        return field(&RegisterResponse::client_secret);
    }
    [[nodiscard]] std::optional<std::string_view> secretLifetimeSeconds() const noexcept
    {
        return field(&RegisterResponse::client_secret_expires_in);
    }
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept
    {
        return field(&RegisterResponse::issued_at);
    }
};

/** OidcRegistration owns the answer of an OpenID Connect registration endpoint. */
class OidcRegistration : public detail::Record<OidcRegisterResponse, free_oidc_register_response>
{
public:
    using Record::Record;

    /** parse_oidc_register_response */
    [[nodiscard]] static Expected<OidcRegistration> parse(std::string_view text)
    {
        return detail::made<OidcRegistration>(::parse_oidc_register_response, text);
    }

    /** The texts of the record; absent where they are null. */
    [[nodiscard]] std::optional<std::string_view> clientId() const noexcept
    {
        return field(&OidcRegisterResponse::client_id);
    }
    [[nodiscard]] std::optional<std::string_view> clientSecret() const noexcept
    {
        return field(&OidcRegisterResponse::client_secret);
    }
    [[nodiscard]] std::optional<std::string_view> accessToken() const noexcept
    {
        return field(&OidcRegisterResponse::registration_access_token);
    }
    [[nodiscard]] std::optional<std::string_view> clientUri() const noexcept
    {
        return field(&OidcRegisterResponse::registration_client_uri);
    }
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept
    {
        return field(&OidcRegisterResponse::client_id_issued_at);
    }
    [[nodiscard]] std::optional<std::string_view> secretExpiresAt() const noexcept
    {
        return field(&OidcRegisterResponse::client_secret_expires_at);
    }
};

// -------------------------------------------------------------------------------------- handshake --

/** Which proofs a server asks for. */
enum class Proofs : unsigned int
{
    certificate = 1,
    oneTimePassword = 2,
    both = 3,
};

/** Whether `type` is the type of the certificate proof: compareSoftwareCertTag. */
[[nodiscard]] inline bool isCertificateType(std::string_view type)
{
    detail::Arguments in;
    const char* const typeText = in.text(type);
    return !in.failure() && ::compareSoftwareCertTag(typeText);
}

/** generateServerHandshakeChallenge */
[[nodiscard]] inline Expected<ParameterList> serverChallenge(TextSpan types, Proofs proofs)
{
    detail::Arguments in;
    char** const list = in.texts(types);
    if (in.failure())
    {
        return *in.failure();
    }
    HandshakePayload* challenge = nullptr;
    if (::generateServerHandshakeChallenge(list, static_cast<unsigned int>(proofs), &challenge) !=
        1)
    {
        return Error::refused;
    }
    return ParameterList{challenge};
}

/** generateClientHandshakeChallenge */
[[nodiscard]] inline Expected<ParameterList> clientChallenge(TextSpan types, unsigned int count)
{
    detail::Arguments in;
    char** const list = in.texts(types);
    if (in.failure())
    {
        return *in.failure();
    }
    HandshakePayload* challenge = nullptr;
    if (::generateClientHandshakeChallenge(list, count, &challenge) != 1)
    {
        return Error::refused;
    }
    return ParameterList{challenge};
}

/** A key document of random secrets: generateKeyTool. */
[[nodiscard]] inline Expected<Text> generateSecrets(std::string_view prefix, unsigned int keys,
                                                    unsigned int tokens, unsigned int tokenLength)
{
    detail::Arguments in;
    const char* const prefixText = in.text(prefix);
    const int length = in.length<int>(tokenLength);
    if (in.failure())
    {
        return *in.failure();
    }
    char* text = nullptr;
    if (::generateKeyTool(prefixText, keys, tokens, length, &text) != 1)
    {
        return Error::refused;
    }
    return Text{text};
}

/** What the client proves itself with, each of it just where a proof asks for it. */
struct Credentials
{
    /** The key document that the server has too. */
    std::string_view secrets = {};
    const CertificateKey* certificate = nullptr;
    const PrivateKey* key = nullptr;
};

/** The client's answer to a challenge: generateHandshakeResponse. */
[[nodiscard]] inline Expected<ParameterList> respond(const ParameterList& challenge,
                                                     const Credentials& credentials)
{
    detail::Arguments in;
    const char* const secrets = in.text(credentials.secrets);
    const auto length = in.length<unsigned int>(credentials.secrets.size());
    if (in.failure())
    {
        return *in.failure();
    }
    const ByteSpan der = credentials.key == nullptr ? ByteSpan{} : credentials.key->der();
    HandshakePayload* certificate =
        credentials.certificate == nullptr ? nullptr : credentials.certificate->parameters().get();
    HandshakePayload* response = nullptr;
    if (!::generateHandshakeResponse(challenge.get(), secrets, length, &certificate, &response,
                                     der.data(), static_cast<unsigned int>(der.size())))
    {
        return Error::refused;
    }
    return ParameterList{response};
}

/** Whether `response` proves all that `challenge` asks for: validateHandshakeResponse, and that
 *  there is one proof for each type, and that no type follows the certificate's, whose proof would
 *  not count then. Nothing remembers a used "C", and the chain of the certificate, which is the
 *  client's, is not verified here. */
[[nodiscard]] inline bool isProven(const ParameterList& challenge, const ParameterList& response,
                                   std::string_view secrets, const CertificateKey* certificate)
{
    detail::Arguments in;
    const char* const secretsText = in.text(secrets);
    const auto length = in.length<unsigned int>(secrets.size());
    const Expected<Texts> types = challenge.values("T");
    const Expected<Texts> proofs = response.values("R");
    if (in.failure() || !types || !proofs || types->size() != proofs->size())
    {
        return false;
    }
    std::size_t place = 0;
    for (const std::string_view type : *types)
    {
        ++place;
        if (isCertificateType(type) && place != types->size())
        {
            return false;
        }
    }
    HandshakePayload* record = certificate == nullptr ? nullptr : certificate->parameters().get();
    return ::validateHandshakeResponse(challenge.get(), secretsText, length, &record,
                                       response.get());
}

// ------------------------------------------------------------------------------------------ ECIES --

/** A sealed envelope: Base64 of the ciphertext and of its MAC, and the IV in hexadecimal. */
struct Envelope
{
    Text ciphertext;
    Text mac;
    Text iv;
};

/** The same, borrowed. */
struct EnvelopeView
{
    std::string_view ciphertext;
    std::string_view mac;
    std::string_view iv;

    EnvelopeView(std::string_view ciphertextText, std::string_view macText,
                 std::string_view ivText) noexcept
        : ciphertext{ciphertextText}, mac{macText}, iv{ivText}
    {
    }
    EnvelopeView(const Envelope& envelope) noexcept
        : ciphertext{envelope.ciphertext}, mac{envelope.mac}, iv{envelope.iv}
    {
    }
};

/** 16 random bytes as 32 hexadecimal digits: generateRandomIV. */
[[nodiscard]] inline Expected<Text> randomIv()
{
    char* iv = nullptr;
    if (::generateRandomIV(&iv) != 1)
    {
        return Error::refused;
    }
    return Text{iv};
}

/** Seals a text for a peer, one byte at least, under a fresh IV: ecies_encrypt. */
[[nodiscard]] inline Expected<Envelope> seal(std::string_view data, const CertificateKey& peer,
                                             const PrivateKey& key)
{
    if (data.size() > static_cast<std::size_t>(INT_MAX))
    {
        return Error::tooLong;
    }
    Expected<Text> iv = randomIv();
    if (!iv)
    {
        return iv.error();
    }
    HandshakePayload* peerRecord = peer.parameters().get();
    char* mac = nullptr;
    Text ciphertext{::ecies_encrypt(data.data(), static_cast<unsigned int>(data.size()),
                                    &peerRecord, &mac, key.der().data(),
                                    static_cast<int>(key.der().size()), iv->c_str())};
    if (ciphertext.view().empty())
    {
        return Error::refused;
    }
    return Envelope{std::move(ciphertext), Text{mac}, std::move(*iv)};
}

/** Opened is what an envelope held. */
class Opened
{
public:
    explicit Opened(Bytes opened) noexcept : plaintext{std::move(opened)}
    {
    }

    /** What was sealed, without the line feed at its end, which is added where there was none. */
    [[nodiscard]] std::string_view data() const& noexcept
    {
        const std::string_view sealed = whole();
        return sealed.substr(0, sealed.size() < tail ? 0 : sealed.size() - tail);
    }
    [[nodiscard]] std::string_view data() const&& = delete;

    /** All of it: the data, a line feed and 16 random characters. */
    [[nodiscard]] std::string_view whole() const& noexcept
    {
        return plaintext.view();
    }
    [[nodiscard]] std::string_view whole() const&& = delete;

private:
    static constexpr std::size_t tail = 1 + 16;

    Bytes plaintext;
};

/** Opens a peer's envelope that holds a text, whose MAC and IV must be there: ecies_decrypt. */
[[nodiscard]] inline Expected<Opened> open(const EnvelopeView& envelope, const CertificateKey& peer,
                                           const PrivateKey& key)
{
    detail::Arguments in;
    const char* const ciphertext = in.text(envelope.ciphertext);
    const char* const mac = in.text(envelope.mac);
    const char* const iv = in.text(envelope.iv);
    if (in.failure())
    {
        return *in.failure();
    }
    HandshakePayload* peerRecord = peer.parameters().get();
    unsigned int length = 0;
    char* const plaintext =
        ::ecies_decrypt(ciphertext, &length, key.der().data(), static_cast<int>(key.der().size()),
                        mac, &peerRecord, iv);
    if (plaintext == nullptr)
    {
        return Error::refused;
    }
    return Opened{Bytes{plaintext, length}};
}

/** Adds a sealed certificate to a handshake response, which may be empty: appendSSLCertToResponse.
 *  NOTE: where just the IV is refused, the response keeps the other two. */
inline Expected<void> attach(ParameterList& response, const EnvelopeView& envelope)
{
    detail::Arguments in;
    const char* const ciphertext = in.text(envelope.ciphertext);
    const char* const mac = in.text(envelope.mac);
    const char* const iv = in.text(envelope.iv);
    if (in.failure())
    {
        return *in.failure();
    }
    HandshakePayload* list = response.release();
    const int result = ::appendSSLCertToResponse(&list, ciphertext, mac, iv);
    response = ParameterList{list};
    return detail::doneOrRefused(result);
}

} // namespace v1
} // namespace bmcoauth
