// The user's list of modules, as several programs at once read and change it.
#include "registration/posix/ModuleRegistry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "support/TestThreads.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr CLSID kClass = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
constexpr const char* kClassLine = "class {01234567-89AB-CDEF-0123-456789ABCDEF} A class\n";

class ModuleRegistry : public testing::Test {
protected:
    ~ModuleRegistry() override { fs::remove_all(m_dir); }

    std::string Text() const {
        std::ifstream file(m_registry.GetFile());
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const fs::path m_dir = fs::temp_directory_path() / ("kest_registry_test." + std::to_string(getpid()));
    CModuleRegistry m_registry{m_dir / "data" / "modules"};
};

TEST_F(ModuleRegistry, AnEntryComesAndGoesAndTheLastIsFoundFirst) {
    EXPECT_TRUE(m_registry.Find(kClass).empty());
    EXPECT_FALSE(m_registry.Remove("/one.so"));
    m_registry.Add("/one.so", kClassLine);
    m_registry.Add("/other.so", "class {01234567-89AB-CDEF-0123-000000000000} Another\nmerit 0x1\n");
    m_registry.Add("/a b.so", std::string("merit 0x2\n") + kClassLine);
    EXPECT_EQ(m_registry.Find(kClass), (std::vector<fs::path>{"/a b.so", "/one.so"}));
    m_registry.Add("/one.so", kClassLine);
    EXPECT_EQ(m_registry.Find(kClass), (std::vector<fs::path>{"/one.so", "/a b.so"}));
    EXPECT_TRUE(m_registry.Remove("/a b.so"));
    EXPECT_FALSE(m_registry.Remove("/a b.so"));
    EXPECT_EQ(Text(),
              "module /other.so\nclass {01234567-89AB-CDEF-0123-000000000000} Another\nmerit 0x1\n"
              "module /one.so\n" +
                  std::string(kClassLine));
    m_registry.Remove("/one.so");
    m_registry.Remove("/other.so");
    EXPECT_FALSE(fs::exists(m_registry.GetFile()));
}

TEST_F(ModuleRegistry, WhatCannotBeEnteredLeavesTheListAsItWas) {
    m_registry.Add("/one.so", kClassLine);
    const std::string strBefore = Text();
    EXPECT_THROW(m_registry.Add("relative.so", kClassLine), fs::filesystem_error);
    EXPECT_THROW(m_registry.Add("/line\nbreak.so", kClassLine), fs::filesystem_error);
    fs::create_directory(m_registry.GetFile().string() + ".new");  // in the way of the new file
    EXPECT_THROW(m_registry.Add("/two.so", kClassLine), fs::filesystem_error);
    EXPECT_EQ(Text(), strBefore);
    CModuleRegistry folder(m_dir / "data");  // is a folder: neither read nor removed
    EXPECT_THROW(folder.Find(kClass), fs::filesystem_error);
    EXPECT_THROW(folder.Remove("/one.so"), fs::filesystem_error);
    std::ofstream(m_dir / "file") << "no folder";
    EXPECT_THROW(CModuleRegistry(m_dir / "file" / "modules").Add("/one.so", ""), fs::filesystem_error);
}

TEST_F(ModuleRegistry, KeepsWhatSomebodyElseHasWritten) {
    m_registry.Add("/one.so", kClassLine);
    fs::rename(m_registry.GetFile(), m_dir / "real");
    fs::create_symlink(m_dir / "real", m_registry.GetFile());
    std::ofstream(m_dir / "real") << "# mine\n\nmodule \nmodule relative.so\n"
                                  << kClassLine << "module /two.so\r\n"
                                  << kClassLine << "module /three.so\nclass";
    EXPECT_EQ(m_registry.Find(kClass), std::vector<fs::path>{"/two.so"});
    m_registry.Add("/four.so", kClassLine);
    EXPECT_EQ(m_registry.Find(kClass), (std::vector<fs::path>{"/four.so", "/two.so"}));
    for (const char* pszModule : {"", "relative.so", "/two.so", "/three.so", "/four.so"}) {
        EXPECT_TRUE(m_registry.Remove(pszModule)) << pszModule;
    }
    EXPECT_TRUE(fs::is_symlink(m_registry.GetFile()));
    EXPECT_EQ(Text(), "# mine\n\n");
}

TEST_F(ModuleRegistry, LosesNothingBetweenTwoWritersAndShowsNoHalfList) {
    constexpr int kWriters = 4, kModules = 40;
    std::atomic<bool> bEnd{false};
    {
        CTestThread reader([&] {  // the list is empty now and then
            while (!bEnd) EXPECT_NO_THROW(EXPECT_LE(m_registry.Find(kClass).size(), kWriters));
        });
        std::vector<std::unique_ptr<CTestThread>> writers;
        for (int w = 0; w < kWriters; ++w) {
            writers.push_back(std::make_unique<CTestThread>([this, w] {
                CModuleRegistry own(m_registry.GetFile());
                for (int i = 0; i < kModules; ++i) {
                    const std::string strModule = "/" + std::to_string(w) + "." + std::to_string(i);
                    own.Add(strModule, kClassLine);
                    if (i == kModules - 1) break;
                    EXPECT_TRUE(own.Remove(strModule));
                }
            }));
        }
        writers.clear();
        bEnd = true;
    }
    const auto found = m_registry.Find(kClass);
    EXPECT_EQ(std::set<fs::path>(found.begin(), found.end()),
              (std::set<fs::path>{"/0.39", "/1.39", "/2.39", "/3.39"}));
}

}  // namespace
}  // namespace kest
