// SPDX-License-Identifier: Apache-2.0
#include "oauth2/oauth-register/key_lists.hpp"

#include "common/pair_list.hpp"

namespace bmcoauth::internal::registration
{

namespace
{

template <typename Record, typename WriteOne>
Json::Value arrayOf(const Record* const* list, WriteOne writeOne)
{
    Json::Value array{Json::arrayValue};
    for (; *list != nullptr; ++list)
    {
        array.append(writeOne(*list));
    }
    return array;
}

template <typename List, typename ReadOne>
bool readList(const Json::Value& object, const char* name, List& list, ReadOne readOne)
{
    const Json::Value* array = member(object, name);
    if (array == nullptr || !array->isArray() || array->empty())
    {
        return true;
    }
    List read{required(zeroedBlock<typename List::element_type>(std::size_t{array->size()} + 1))
                  .release()};
    for (Json::ArrayIndex i = 0; i < array->size(); ++i)
    {
        const Json::Value& element = (*array)[i];
        auto*& next = read.get()[i];
        next = element.isObject() ? readOne(element).release() : nullptr;
        if (next == nullptr)
        {
            return refuse(BMCOAUTH_RULE_REGISTRATION_KEYS).about(name).at(i);
        }
    }
    list = std::move(read);
    return true;
}

constexpr ObjectForm readCertificate{
    .null = OddMember::refuse,
    .emptyArray = OddMember::valueless,
    .scalar = OddMember::refuse,
};

/** An object without members is a key too, though one that no copy takes. */
ParameterList certificateOf(const Json::Value& object)
{
    return object.empty() ? emptyParameterList(0) : parameterListOf(object, readCertificate);
}

} // namespace

Json::Value arrayOfKeys(const jwk* const* list)
{
    return arrayOf(list, objectOfPairs<jwk>);
}

Json::Value arrayOfCertificates(const HandshakePayload* const* list, const ListForm& form)
{
    return arrayOf(
        list, [&](const HandshakePayload* certificate) { return objectOf(certificate, form); });
}

bool readKeys(const Json::Value& object, const char* name, keys::KeyList& list)
{
    return readList(object, name, list, pairsOf<keys::KeyRecord>);
}

bool readCertificates(const Json::Value& object, const char* name, keys::CertificateKeyList& list)
{
    return readList(object, name, list, certificateOf);
}

} // namespace bmcoauth::internal::registration
