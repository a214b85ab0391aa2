// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The stores that keep what Store promises: every test of that runs over each of them. */

#include <bmcoauth/service.hpp>

#include <gtest/gtest.h>

#include <optional>

#ifdef WITH_SQLITE
#include "dbus/sqlite_store.hpp"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#endif

namespace bmcoauth
{

/** A store that is empty at first. */
template <typename T>
class Kept
{
public:
    T& operator*()
    {
        return *store;
    }
    T* operator->()
    {
        return &*store;
    }
    void clear()
    {
        store.emplace();
    }

private:
    std::optional<T> store{std::in_place};
};

#ifdef WITH_SQLITE
/** A folder that ends with its object. */
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        // In memory, if there is such a place: what a power cut would do is not tested here.
        const std::filesystem::path memory = "/dev/shm";
        const bool isThere = ::access(memory.c_str(), W_OK) == 0;
        name = (isThere ? memory : std::filesystem::temp_directory_path()) / "store-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr)
        {
            throw std::runtime_error{name};
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::filesystem::remove_all(name);
    }

    [[nodiscard]] std::string file() const
    {
        return name + "/clients.db";
    }

private:
    std::string name;
};

template <>
class Kept<SqliteStore>
{
public:
    SqliteStore& operator*()
    {
        return *store;
    }
    SqliteStore* operator->()
    {
        return store.get();
    }
    void clear()
    {
        store.reset();
        folder.emplace();
        store = SqliteStore::open(folder->file()).value();
    }

private:
    std::optional<TemporaryFolder> folder{std::in_place};
    std::unique_ptr<SqliteStore> store = SqliteStore::open(folder->file()).value();
};

using AllStores = ::testing::Types<MemoryStore, SqliteStore>;
#else
using AllStores = ::testing::Types<MemoryStore>;
#endif

} // namespace bmcoauth
