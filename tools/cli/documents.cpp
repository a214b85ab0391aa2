// SPDX-License-Identifier: Apache-2.0
#include "cli/documents.hpp"

#include "cli/color.hpp"
#include "cli/refusal.hpp"

#include <json/reader.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <new>
#include <system_error>

namespace bmcoauth::tool
{

void stopFor(const Error& error, const std::string& message, Exit status)
{
    if (error.rule() == BMCOAUTH_RULE_MEMORY_EXHAUSTED)
    {
        throw std::bad_alloc{};
    }
    refuse(message, reasonOf(error), status);
}

std::string nameOf(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

std::string harmless(std::string_view text)
{
    std::string shown;
    for (const char c : text)
    {
        // Whether a plain char has a sign depends on the machine.
        const auto byte = static_cast<unsigned char>(c);
        shown += byte < 0x20 || byte == 0x7f ? '?' : c;
    }
    return shown;
}

namespace
{

/** Nothing that the library takes comes near this, and a device has other uses for its memory. */
constexpr std::size_t mostBytes = std::size_t{64} << 20U;

[[noreturn]] void stopReading(const std::string& path, int error)
{
    throw Stop{Exit::failure,
               "cannot read " + nameOf(path) + ": " + std::generic_category().message(error)};
}

} // namespace

void closeFile(std::FILE* file)
{
    // Of a file that is only read, nothing is lost.
    static_cast<void>(std::fclose(file));
}

void requireReadable(const std::string& path)
{
    struct stat status
    {
    };
    if (access(path.c_str(), R_OK) != 0 || stat(path.c_str(), &status) != 0)
    {
        stopReading(path, errno);
    }
    if (S_ISDIR(status.st_mode))
    {
        stopReading(path, EISDIR);
    }
}

void stopWriting(const std::string& path, int error)
{
    throw Stop{Exit::failure,
               "cannot write " + path + ": " + std::generic_category().message(error)};
}

void requireWritable(const std::string& path)
{
    struct stat status
    {
    };
    const bool isThere = stat(path.c_str(), &status) == 0;
    if (isThere && S_ISDIR(status.st_mode))
    {
        stopWriting(path, EISDIR);
    }
    // A new file is made in its directory; the dot finds out whether that is a directory.
    const std::string place =
        isThere ? path : std::filesystem::path{path}.replace_filename(".").string();
    if (access(place.c_str(), W_OK) != 0)
    {
        stopWriting(path, errno);
    }
}

std::string shown(std::string_view text)
{
    const bool printable = std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
    return printable ? std::string{text} : harmless(textOf(std::string{text}));
}

namespace
{

/** Standard input is there once: a second document from it would be an empty one. */
void takeStandardInput()
{
    static bool taken = false;
    if (std::exchange(taken, true))
    {
        throw Stop{Exit::usage, "only one document can come from standard input"};
    }
    if (isatty(STDIN_FILENO) == 1)
    {
        std::cerr << "bmcoauth: reading standard input (Ctrl-D ends it)\n";
    }
}

} // namespace

std::string readBytes(const std::string& path)
{
    if (path == "-")
    {
        takeStandardInput();
    }
    const FilePtr file{path == "-" ? nullptr : std::fopen(path.c_str(), "re")};
    std::FILE* const input = path == "-" ? stdin : file.get();
    if (input == nullptr)
    {
        stopReading(path, errno);
    }
    std::string bytes;
    std::array<char, 16384> block{};
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), input))
    {
        bytes.append(block.data(), count);
        if (bytes.size() > mostBytes)
        {
            throw Stop{Exit::invalid,
                       nameOf(path) + " is longer than " + std::to_string(mostBytes) + " bytes"};
        }
    }
    if (std::ferror(input) != 0)
    {
        stopReading(path, errno);
    }
    return bytes;
}

std::string readText(const std::string& path)
{
    std::string text = readBytes(path);
    if (text.find('\0') != std::string::npos)
    {
        throw Stop{Exit::invalid, nameOf(path) + " holds a zero byte: it is not a text"};
    }
    return text;
}

std::string readWord(const std::string& path)
{
    std::string text = readText(path);
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    return text;
}

std::optional<std::string> decodedBase64Url(std::string_view text)
{
    const Expected<Bytes> bytes = decodeBase64Url(text);
    return bytes ? std::optional{std::string{bytes->view()}} : std::nullopt;
}

std::vector<std::string_view> viewsOf(const std::vector<std::string>& texts)
{
    return {texts.begin(), texts.end()};
}

namespace
{

constexpr const char* notEncoded = "the data could not be encoded";

} // namespace

std::string encodedBase64(std::string_view bytes)
{
    return std::string{orStop(base64(bytesOf(bytes)), notEncoded)};
}

std::string encodedBase64Url(std::string_view bytes)
{
    return std::string{orStop(base64Url(bytesOf(bytes)), notEncoded)};
}

std::optional<Json::Value> parsedObject(std::string_view text)
{
    try
    {
        std::optional<Json::Value> tree{std::in_place};
        Json::CharReaderBuilder settings;
        settings["collectComments"] = false;
        settings["stackLimit"] = 256; // as the library
        const std::unique_ptr<Json::CharReader> reader{settings.newCharReader()};
        if (reader->parse(text.data(), text.data() + text.size(), &*tree, nullptr) &&
            tree->isObject())
        {
            return tree;
        }
    }
    catch (const Json::Exception&)
    {
        // Nested too deep.
        return std::nullopt;
    }
    return std::nullopt;
}

Json::Value readObject(const std::string& path)
{
    std::optional<Json::Value> document = parsedObject(readText(path));
    if (!document)
    {
        throw Stop{Exit::invalid, nameOf(path) + " is not a JSON object"};
    }
    return std::move(*document);
}

namespace
{

/** Stops the command if the last call of std::cout, which has set errno, has failed. */
void requireWritten()
{
    if (!std::cout)
    {
        stopWriting("standard output", errno);
    }
}

} // namespace

void printBytes(std::string_view bytes)
{
    std::cout << bytes;
    requireWritten();
}

void flushOutput()
{
    std::cout.flush();
    requireWritten();
}

void print(std::string_view text)
{
    printBytes(std::string{text} + '\n');
}

void print(const Text& text)
{
    print(text.view());
}

std::string textOf(const Json::Value& tree)
{
    return orStop(jsonText(tree), "the document could not be written");
}

void printGood(std::string_view verdict, const std::string& details)
{
    print(colored(Shade::good, verdict, STDOUT_FILENO) + details);
}

void printTable(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (const std::vector<std::string>& row : rows)
    {
        for (std::size_t i = 0; i < row.size(); ++i)
        {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const std::vector<std::string>& row : rows)
    {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
        {
            line += row[i];
            // Nothing follows the last one.
            line.append(i + 1 < row.size() ? widths[i] + 2 - row[i].size() : 0, ' ');
        }
        print(line);
    }
}

void printJson(const Json::Value& tree)
{
    print(textOf(tree));
}

void warn(const std::string& message)
{
    // What was printed until here comes first where both streams end in one place.
    flushOutput();
    std::cerr << "bmcoauth: " << colored(Shade::doubtful, "warning:", STDERR_FILENO) << ' '
              << harmless(message) << '\n';
}

} // namespace bmcoauth::tool
