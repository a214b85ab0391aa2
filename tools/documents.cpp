// SPDX-License-Identifier: Apache-2.0
#include "documents.hpp"

#include "command.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

namespace bmcoauth::tool
{

std::string nameOf(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

std::string readText(const std::string& path)
{
    std::ifstream file;
    if (path != "-")
    {
        errno = 0;
        file.open(path, std::ios::binary);
        if (!file)
        {
            throw Stop{Exit::failure, "cannot open " + path + ": " + std::strerror(errno)};
        }
    }
    std::istream& input = path == "-" ? std::cin : file;
    std::string text{std::istreambuf_iterator<char>{input}, {}};
    // A folder opens, and only reading it fails.
    if (input.bad())
    {
        throw Stop{Exit::failure, "cannot read " + nameOf(path)};
    }
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

Json::Value readObject(const std::string& path)
{
    Json::Value document;
    if (!loadJsonDoc(readText(path).c_str(), document))
    {
        throw Stop{Exit::invalid, nameOf(path) + " is not a JSON object"};
    }
    return document;
}

void print(const std::string& text)
{
    std::cout << text << '\n';
}

void printJson(const Json::Value& tree)
{
    print(json_fastWriter(tree));
}

const char* orStop(const Text& text, const std::string& message)
{
    if (!text)
    {
        throw Stop{Exit::failure, message};
    }
    return text.get();
}

} // namespace bmcoauth::tool
