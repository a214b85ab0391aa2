// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/command.hpp"

#include <bmcoauth.hpp>

#include <json/value.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth::tool
{

/** Hands an object to the function that releases it. */
template <auto Release>
struct Releaser
{
    template <typename T>
    void operator()(T* object) const noexcept
    {
        Release(object);
    }
};

/** Closes a file that was only read. */
void closeFile(std::FILE* file);

using FilePtr = std::unique_ptr<std::FILE, Releaser<closeFile>>;

/** Ends the command with @p message because a call failed with @p error: by the rule that refused. */
[[noreturn]] void stopFor(const Error& error, const std::string& message, Exit status);

/** The value of @p result; if there is none, stopFor. */
template <typename T>
[[nodiscard]] T orStop(Expected<T> result, const std::string& message, Exit status = Exit::failure)
{
    if (!result)
    {
        stopFor(result.error(), message, status);
    }
    return std::move(*result);
}

/** The name under which @p path is spoken of: standard input for "-". */
[[nodiscard]] std::string nameOf(const std::string& path);

/** @p text with question marks for the control characters, which a terminal would obey. */
[[nodiscard]] std::string harmless(std::string_view text);

/** Stops the command unless @p path is a file that can be read. */
void requireReadable(const std::string& path);

/** Stops the command: @p path cannot be written, by reason of @p error. */
[[noreturn]] void stopWriting(const std::string& path, int error);

/** Stops the command unless @p path is a file that can be written, or may be made, as far as its
 *  permissions tell. */
void requireWritable(const std::string& path);

/** @p text as it is, or as a JSON string if it holds more than printable ASCII characters. */
[[nodiscard]] std::string shown(std::string_view text);

/** The whole of the file @p path, or of standard input for "-"; a stop when it cannot be read. */
[[nodiscard]] std::string readBytes(const std::string& path);

/** readBytes of a text: a stop when there is a zero byte, which no text of the library holds. */
[[nodiscard]] std::string readText(const std::string& path);

/** readText without the white space at its end, for a file that holds a single word. */
[[nodiscard]] std::string readWord(const std::string& path);

/** The bytes of the Base64url text @p text; nothing if it is malformed. */
[[nodiscard]] std::optional<std::string> decodedBase64Url(std::string_view text);

/** Views of @p texts, to pass the values of an option to a call. */
[[nodiscard]] std::vector<std::string_view> viewsOf(const std::vector<std::string>& texts);
std::vector<std::string_view> viewsOf(std::vector<std::string>&& texts) = delete;

/** @p bytes in standard Base64 with padding. */
[[nodiscard]] std::string encodedBase64(std::string_view bytes);

/** @p bytes in Base64url. */
[[nodiscard]] std::string encodedBase64Url(std::string_view bytes);

/** The JSON object in @p text, as the library's readers take one; nothing if it is not one. Zero
 *  bytes do not end it. Drops its comments: jsoncpp would write them again, with their control
 *  characters, and the rest of a line after // would be lost. */
[[nodiscard]] std::optional<Json::Value> parsedObject(std::string_view text);

/** Reads the JSON object @p path, or stops the command. */
[[nodiscard]] Json::Value readObject(const std::string& path);

/** Prints @p bytes on standard output; stops the command if they cannot be written. */
void printBytes(std::string_view bytes);

/** Writes what was printed; stops the command if that fails. */
void flushOutput();

/** Prints @p text and a line feed on standard output. */
void print(std::string_view text);
void print(const Text& text);

/** Prints a verdict such as "valid" and what there is to say about it. */
void printGood(std::string_view verdict, const std::string& details);

/** Prints @p rows, the first of which are titles, in columns. */
void printTable(const std::vector<std::vector<std::string>>& rows);

/** The text form of @p tree. */
[[nodiscard]] std::string textOf(const Json::Value& tree);

/** Prints the text form of @p tree. */
void printJson(const Json::Value& tree);

/** Says on stderr, in one line, what must not be overlooked. */
void warn(const std::string& message);

} // namespace bmcoauth::tool
