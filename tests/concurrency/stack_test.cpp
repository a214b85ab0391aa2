// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"
#include "device.hpp"
#include "support/hostile.hpp"

#include <gtest/gtest.h>
#include <json/value.h>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string_view>
#include <system_error>

using namespace calls;

namespace
{

/** What every function gets along with, as bmcoauth.h promises. */
constexpr std::size_t promised = std::size_t{192} * 1024;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isInstrumented = true;
#else
constexpr bool isInstrumented = false;
#endif

/** A stack of 1 MiB and a second view of the same memory: valgrind lets nobody look at a stack that
 *  has been left. */
class PaintedStack
{
public:
    PaintedStack() : file{memfd_create("stack", MFD_CLOEXEC)}
    {
        if (file < 0 || ftruncate(file, static_cast<off_t>(size)) != 0)
        {
            throw std::system_error(errno, std::generic_category(), "memfd_create");
        }
        stack = map();
        view = static_cast<char*>(map());
    }
    PaintedStack(const PaintedStack&) = delete;
    PaintedStack& operator=(const PaintedStack&) = delete;
    PaintedStack(PaintedStack&&) = delete;
    PaintedStack& operator=(PaintedStack&&) = delete;
    ~PaintedStack()
    {
        munmap(stack, size);
        munmap(view, size);
        close(file);
    }

    /** Runs @p body on it and gives the bytes that were used, with those that the C library keeps at
     *  the top of a thread's stack. */
    [[nodiscard]] std::size_t usedBy(std::function<void()> body)
    {
        std::memset(view, paint, size);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_t thread{};
        const int error = pthread_attr_setstack(&attributes, stack, size) != 0
                              ? EINVAL
                              : pthread_create(&thread, &attributes, call, &body);
        pthread_attr_destroy(&attributes);
        if (error != 0)
        {
            throw std::system_error(error, std::generic_category(), "pthread_create");
        }
        pthread_join(thread, nullptr);
        // Page by page, for the sake of emulators.
        const std::string page(4096, paint);
        std::size_t untouched = 0;
        while (std::memcmp(view + untouched, page.data(), page.size()) == 0)
        {
            untouched += page.size();
        }
        return size - untouched -
               std::string_view{view + untouched, page.size()}.find_first_not_of(paint);
    }

private:
    static constexpr std::size_t size = std::size_t{1024} * 1024;
    static constexpr char paint = 0x5A;

    [[nodiscard]] void* map() const
    {
        void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (memory == MAP_FAILED)
        {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        return memory;
    }

    static void* call(void* body)
    {
        (*static_cast<std::function<void()>*>(body))();
        return nullptr;
    }

    int file;
    void* stack = nullptr;
    char* view = nullptr;
};

/** The largest use of a test's calls, which is also in the report. */
class Stack : public testing::Test
{
protected:
    void SetUp() override
    {
        if (isInstrumented)
        {
            GTEST_SKIP() << "a sanitizer makes every frame larger";
        }
    }

    void measure(const std::string& name, std::function<void()> body)
    {
        const std::size_t used = stack.usedBy(std::move(body));
        EXPECT_LE(used, promised) << name;
        if (used > most)
        {
            most = used;
            RecordProperty("function", name);
            RecordProperty("bytes", std::to_string(most));
        }
    }

private:
    PaintedStack stack;
    std::size_t most = 0;
};

/** Objects nested @p depth deep, around a value that is not written on the fast path. */
std::string nestedObjects(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
    {
        text += R"({"xidp":)";
    }
    return text + "[1.5]" + std::string(static_cast<std::size_t>(depth), '}');
}

/** The same of arrays, with a comment that must be written again. */
std::string nestedArrays(int depth)
{
    std::string text = support::nestedMember("scope", depth);
    return text.insert(text.find(']'), "/*c*/ 1.5");
}

struct JsonReader
{
    const char* name;
    std::function<void(const std::string& text)> read;
};

std::string tokenOf(const std::string& payload)
{
    return support::base64Url(R"({"alg":"ES256","typ":"JWT"})") + "." +
           support::base64Url(payload) + ".AAAA";
}

/** Reads @p text, gives the tree to @p use, and destroys it. */
template <typename Use>
void withTree(const std::string& text, const Use& use)
{
    Json::Value tree;
    if (loadJsonDoc(text.c_str(), tree))
    {
        use(tree);
    }
}

/** Has @p change alter a heap copy of @p text. */
template <typename Change>
void change(const std::string& text, const Change& change)
{
    char* document = support::heapText(text).release();
    change(&document);
    const HeapText owned{document};
}

std::vector<JsonReader> documentReaders()
{
    return {
        {"loadJsonDoc",
         [](const std::string& text) {
             withTree(text, [](Json::Value&) {});
         }},
        {"json_fastWriter",
         [](const std::string& text) {
             withTree(text, [](const Json::Value& tree) { json_fastWriter(tree); });
         }},
        {"update",
         [](const std::string& text) {
             withTree(text, [&](Json::Value& tree) {
                 withTree(text, [&](Json::Value& other) { update(tree, other); });
             });
         }},
        {"json_to_obj",
         [](const std::string& text) {
             withTree(text, [](Json::Value& tree) {
                 char* found = nullptr;
                 json_to_obj(tree, "xidp", &found);
                 const HeapText owned{found};
             });
         }},
        {"get_value_objarray",
         [](const std::string& text) {
             char** found = nullptr;
             get_value_objarray((R"({"list":[)" + text + "]}").c_str(), "list", &found);
             const StringArray owned{found};
         }},
        {"set_value_char",
         [](const std::string& text) {
             change(text, [](char** document) { set_value_char(document, "a", "b"); });
         }},
        {"merge_doc",
         [](const std::string& text) {
             change(text, [&](char** document) { merge_doc(document, text.c_str()); });
         }},
        {"getKeyNames",
         [](const std::string& text) {
             char** names = nullptr;
             getKeyNames(text.c_str(), static_cast<unsigned int>(text.size()), &names);
             const StringArray owned{names};
         }},
        {"parse_handshake_payload",
         [](const std::string& text) {
             const PayloadPtr read{parse_handshake_payload(text.c_str())};
         }},
        {"parse_register_request",
         [](const std::string& text) {
             const RegisterRequestPtr read{parse_register_request(text.c_str())};
         }},
        {"client_authorize",
         [](const std::string& text) {
             const HeapText answer{client_authorize(text.c_str())};
         }},
        {"oauth2_parse_jwk",
         [](const std::string& text) {
             jwk* key = oauth2_parse_jwk(text.c_str());
             free_jwk(&key);
         }},
        {"appendPublicKey",
         [](const std::string& text) {
             // With a key beside what is nested, since nothing else is written again.
             const std::string key =
                 R"({"crv":"P-256","kty":"EC","x":"MKBCTNIcKUSDii11ySs3526iDZ8AiTo7Tu6KPAqv7D4",)"
                 R"("y":"4Etl6SRW2YiLUrN5vfvVHuhp7x8PxltmWWlbbM4IFyM",)";
             change(key + text.substr(1), [](char** document) { appendPublicKey(document); });
         }},
    };
}

std::vector<JsonReader> tokenReaders(Inputs& inputs)
{
    return {
        {"get_jwt_payload",
         [](const std::string& text) {
             JWTPayload* payload = nullptr;
             get_jwt_payload(tokenOf(text).c_str(), &payload);
             const TokenPtr owned{payload};
         }},
        {"validateJWT",
         [&](const std::string& text) {
             JWTHeader* header = nullptr;
             JWTPayload* payload = nullptr;
             validateJWT(tokenOf(text).c_str(), bytesOf(inputs.world.deviceKey),
                         lengthOf(inputs.world.deviceKey), &header, &payload);
             const HeaderPtr headerOwner{header};
             const TokenPtr payloadOwner{payload};
         }},
        {"validateJWT_Delegated",
         [&](const std::string& text) {
             JWTHeader* header = nullptr;
             JWTPayload* payload = nullptr;
             int verified = 0;
             std::vector<const char*> trusted{text.c_str(), inputs.world.publicKey.c_str(),
                                              nullptr};
             validateJWT_Delegated(tokenOf(text).c_str(), trusted.data(), 0, &header, &payload, 0,
                                   nullptr, nullptr, &verified);
             const HeaderPtr headerOwner{header};
             const TokenPtr payloadOwner{payload};
         }},
        {"get_xidp_privileges",
         [](const std::string& text) {
             std::string claim = text;
             JWTPayload payload{};
             payload.xidp = claim.data();
             get_xidp_privileges(&payload, nullptr);
         }},
        {"generateHandshakeResponse",
         [&](const std::string& text) {
             HandshakePayload* response = nullptr;
             HandshakePayload* certificate = inputs.device;
             generateHandshakeResponse(inputs.challenge, text.c_str(),
                                       static_cast<unsigned int>(text.size()), &certificate,
                                       &response, bytesOf(inputs.world.deviceKey),
                                       static_cast<unsigned int>(inputs.world.deviceKey.size()));
             const PayloadPtr owned{response};
         }},
    };
}

/** An authority whose chain to @p root takes @p count intermediate certificates, and "x5c" values
 *  for a device of it. */
std::vector<std::string> longChain(const support::Identity& root, int count)
{
    std::vector<std::string> bodies{""};
    support::CertificatePlan plan{.commonName = "0", .group = "secp521r1", .authority = true};
    support::Identity issuer = root.issue(plan);
    bodies.push_back(issuer.body());
    for (int i = 1; i < count; ++i)
    {
        plan.commonName = std::to_string(i);
        plan.group = i % 2 == 0 ? "secp521r1" : "RSA";
        issuer = issuer.issue(plan);
        bodies.push_back(issuer.body());
    }
    bodies.push_back(issuer.issue({}).body());
    return bodies;
}

} // namespace

TEST_F(Stack, IsEnoughForEveryFunction)
{
    Device device;
    Inputs inputs{device.world};
    for (const Call& call : allCalls())
    {
        measure(call.functions.front(), [&] { call.run(inputs); });
    }
}

TEST_F(Stack, IsEnoughForTheDeepestTexts)
{
    Device device;
    Inputs inputs{device.world};
    std::vector<JsonReader> readers = documentReaders();
    std::ranges::move(tokenReaders(inputs), std::back_inserter(readers));
    // The innermost value is a level too, and one is the list of get_value_objarray.
    for (const int depth : {252, 253, 254, 255, 256, 990})
    {
        for (const std::string& text : {nestedObjects(depth), nestedArrays(depth)})
        {
            for (const JsonReader& reader : readers)
            {
                measure(reader.name + (" " + std::to_string(depth)), [&] { reader.read(text); });
            }
        }
    }
}

TEST_F(Stack, IsEnoughForLongChains)
{
    Device device;
    std::vector<std::string> bodies = longChain(device.world.root, 90);
    std::vector<char*> values;
    values.reserve(bodies.size() + 1);
    for (std::string& body : bodies)
    {
        values.push_back(body.data());
    }
    values.push_back(nullptr);
    std::string name = "x5c";
    std::vector<HandshakePayload> record{{name.data(), values.data()}, {}};
    int result = 0;
    measure("chainVerify", [&] { result = chainVerify(record.data()); });
    EXPECT_EQ(result, 1);
}

// As long as a modulus may be; the key need not have made the signature.
TEST_F(Stack, IsEnoughForLargeRsaKeys)
{
    const HeapText key{
        createRsaPublicKey(support::base64Url(std::string(2048, '\xff')).c_str(), "AQAB")};
    ASSERT_NE(key, nullptr);
    std::vector<const char*> trusted{key.get(), nullptr};
    for (const char* algorithm : {"RS512", "PS512"})
    {
        const std::string token =
            support::base64Url(std::string{R"({"alg":")"} + algorithm + R"("})") + ".e30." +
            support::base64Url(std::string(2048, '\x7f'));
        JWTHeader* header = nullptr;
        JWTPayload* payload = nullptr;
        int verified = 0;
        measure(algorithm, [&] {
            validateJWT_Delegated(token.c_str(), trusted.data(), 0, &header, &payload, 0, nullptr,
                                  nullptr, &verified);
        });
        const HeaderPtr headerOwner{header};
        const TokenPtr payloadOwner{payload};
        EXPECT_NE(header, nullptr);
    }
}
