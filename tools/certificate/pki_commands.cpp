// SPDX-License-Identifier: Apache-2.0
#include "certificate/pki.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/new_file.hpp"
#include "key/keys.hpp"

#include <algorithm>
#include <filesystem>

namespace bmcoauth::tool
{

namespace
{

namespace fs = std::filesystem;

struct Options
{
    std::string directory;
    std::uint32_t intermediates = 1;
    std::vector<std::string> devices;
    bool developmentRoot = false;
    bool json = false;
};

/** The directory that receives the files; nothing in it is replaced. */
class Output
{
public:
    Output(const std::string& path, bool asJson) : directory{path}, json{asJson}
    {
        std::error_code error;
        fs::create_directories(directory, error);
        if (!fs::is_directory(directory, error))
        {
            throw Stop{
                Exit::failure,
                "cannot make the directory " + path + ": " +
                    (error ? error : std::make_error_code(std::errc::not_a_directory)).message()};
        }
    }

    void write(const std::string& name, const std::string& text)
    {
        const std::string file = directory / name;
        writeFile(file, text, Readers::everybody, existing);
        report(file);
    }

    /** Writes a new key to a file of this name, and returns where the file is. */
    [[nodiscard]] std::string writeKey(const std::string& name)
    {
        std::string file = directory / name;
        writeNewKey(file, existing);
        report(file);
        return file;
    }

    void end() const
    {
        if (json)
        {
            Json::Value document;
            document["files"] = files;
            printJson(document);
        }
    }

private:
    /** Tells of a file that was written: at once, or in a document at the end. */
    void report(const std::string& file)
    {
        if (json)
        {
            files.append(file);
        }
        else
        {
            print(file);
        }
    }

    static constexpr Existing existing{.replaced = false, .advice = "name another directory"};

    fs::path directory;
    bool json;
    Json::Value files{Json::arrayValue};
};

/** A device's name is its common name and begins the names of its files. */
void checkName(const std::string& name)
{
    const bool plain = std::ranges::all_of(name, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_';
    });
    // More than 17 characters never match where the library checks a name.
    if (name.empty() || name.size() > 17 || !plain)
    {
        throw Stop{Exit::usage, "--device takes 1 to 17 letters, digits, hyphens and underscores"};
    }
}

/** The names of the devices, each of which begins the names of files. */
std::vector<std::string> checkedNames(const std::vector<std::string>& given)
{
    if (given.empty())
    {
        return {"dev-device"};
    }
    for (auto name = given.begin(); name != given.end(); ++name)
    {
        checkName(*name);
        if (std::find(given.begin(), name, *name) != name)
        {
            throw Stop{Exit::usage, "--device " + *name + " is given twice"};
        }
    }
    return given;
}

void writeDevice(Output& output, const std::string& name, const Identity& issuer,
                 const std::string& intermediates)
{
    const std::string keyFile = output.writeKey(name + ".key");
    const Expected<EcKey> key = ecKeyOf(readPrivateKey(keyFile));
    EvpKeyPtr wrapped{EVP_PKEY_new()};
    if (!key || !wrapped || EVP_PKEY_set1_EC_KEY(wrapped.get(), key->get()) != 1)
    {
        throw Stop{Exit::failure, "cannot read the key " + keyFile};
    }
    const Identity device = makeDevice(name, std::move(wrapped), issuer);
    const std::string pem = pemOf(*device.certificate);
    output.write(name + ".pem", pem);
    output.write(name + "-chain.pem", intermediates.empty() ? pem : pem + intermediates + pem);
}

void makePki(const Options& options)
{
    const std::vector<std::string> names = checkedNames(options.devices);
    Output output{options.directory, options.json};
    const Identity production = makeAuthority("Development production root", nullptr);
    const Identity development = makeAuthority("Development root", nullptr);
    output.write("FactorycertProdRoot.pem", pemOf(*production.certificate));
    output.write("FactorycertDevRoot.pem", pemOf(*development.certificate));

    std::vector<Identity> authorities;
    std::string intermediates;
    const Identity* issuer = options.developmentRoot ? &development : &production;
    for (std::uint32_t i = 1; i <= options.intermediates; ++i)
    {
        authorities.push_back(
            makeAuthority("Development intermediate " + std::to_string(i), issuer));
        issuer = &authorities.back();
        intermediates.insert(0, pemOf(*issuer->certificate));
    }
    for (const std::string& name : names)
    {
        writeDevice(output, name, *issuer, intermediates);
    }
    output.end();
    warn("these certificates are for development only; their authorities' keys were not kept");
}

} // namespace

void addPkiCommands(const Command& root)
{
    const Command group = root.group("pki", "Certificates for development");
    const Command verb = group.verb(
        "make", "Make factory roots, intermediates and devices for development",
        "pki make --intermediates 2 --device dev-device certs",
        "Writes both factory roots under the names that they have on a device "
        "(FactorycertProdRoot.pem, FactorycertDevRoot.pem) and, for each device, NAME.key, "
        "NAME.pem and NAME-chain.pem. Prints the files.\n\n"
        "How a chain is read: the name and the key are those of the first certificate, the last "
        "one "
        "is verified, and those between are the intermediates. Of two certificates, the second is "
        "verified by the roots alone. So a chain with intermediates is written device, "
        "intermediates, device; a chain without holds the device alone.\n\n"
        "No private key of an authority is kept. All names say that they are for development. The "
        "certificates are valid from 2020 to 2049, and so on 1 January 2035, the day for which "
        "chains are judged.");
    Options& options = verb.runs(makePki);
    verb.required("DIRECTORY", options.directory, "Where to write; made if it does not exist");
    verb.number("--intermediates NUMBER", options.intermediates,
                "Number of intermediate authorities (default 1)", 0, 8);
    verb.option("--device NAME", options.devices, "Name of a device (default dev-device)");
    verb.flag("--development-root", options.developmentRoot,
              "Issue by the development root, which only marked devices trust");
    verb.json(options.json);
}

} // namespace bmcoauth::tool
