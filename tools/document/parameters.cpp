// SPDX-License-Identifier: Apache-2.0
#include "document/parameters.hpp"

#include "cli/command.hpp"

namespace bmcoauth::tool
{

ParameterList readParameters(const std::string& path, const std::string& member)
{
    const Json::Value document = readObject(path);
    const Json::Value& list = document[member].isObject() ? document[member] : document;
    return orStop(ParameterList::parse(textOf(list)),
                  nameOf(path) + " holds no list of parameters, nor a \"" + member +
                      "\" that is one",
                  Exit::invalid);
}

void printParameters(const ParameterList& list)
{
    print(orStop(list.write(), "the document could not be written"));
}

std::vector<std::string> copiesOf(TextRange range)
{
    std::vector<std::string> copies;
    for (const std::string_view text : range)
    {
        copies.emplace_back(text);
    }
    return copies;
}

std::vector<std::string> valuesOf(const ParameterList& list, std::string_view name)
{
    const Expected<Texts> values = list.values(name);
    return copiesOf(values ? values->range() : TextRange{});
}

} // namespace bmcoauth::tool
