// The user's list of modules, as several programs at once read and change it.
#include "platform/posix/ModuleRegistry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>

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
    m_registry.Remove("/one.so");
    m_registry.Add("/one.so", kClassLine);
    m_registry.Add("/other.so", "class {01234567-89AB-CDEF-0123-000000000000} Another\nmerit 0x1\n");
    m_registry.Add("/a b.so", std::string("merit 0x2\n") + kClassLine);
    EXPECT_EQ(m_registry.Find(kClass), (std::vector<fs::path>{"/a b.so", "/one.so"}));
    m_registry.Add("/one.so", kClassLine);
    EXPECT_EQ(m_registry.Find(kClass), (std::vector<fs::path>{"/one.so", "/a b.so"}));
    m_registry.Remove("/a b.so");
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
    std::ofstream(m_dir / "file") << "no folder";
    EXPECT_THROW(CModuleRegistry(m_dir / "file" / "modules").Add("/one.so", ""), fs::filesystem_error);
}

TEST_F(ModuleRegistry, TakesAListApartThatSomebodyHasEdited) {
    m_registry.Add("/one.so", kClassLine);
    std::ofstream(m_registry.GetFile()) << "junk\n\nmodule \nmodule /two.so\r\n"
                                        << kClassLine << "module /three.so\nclass";
    EXPECT_EQ(m_registry.Find(kClass), (std::vector<fs::path>{"/two.so\r"}));
    m_registry.Add("/four.so", kClassLine);
    EXPECT_EQ(m_registry.Find(kClass).front(), "/four.so");
}

TEST_F(ModuleRegistry, LosesNothingBetweenTwoWritersAndShowsNoHalfList) {
    constexpr int kWriters = 4, kModules = 40;
    std::atomic<bool> bEnd{false};
    m_registry.Add("/always.so", kClassLine);
    {
        CTestThread reader([&] {
            while (!bEnd) EXPECT_EQ(m_registry.Find(kClass).back(), "/always.so");
        });
        std::vector<std::unique_ptr<CTestThread>> writers;
        for (int w = 0; w < kWriters; ++w) {
            writers.push_back(std::make_unique<CTestThread>([this, w] {
                CModuleRegistry own(m_registry.GetFile());
                for (int i = 0; i < kModules; ++i) {
                    own.Add("/" + std::to_string(w) + "." + std::to_string(i), kClassLine);
                    if (i > 0) own.Remove("/" + std::to_string(w) + "." + std::to_string(i - 1));
                }
            }));
        }
        writers.clear();
        bEnd = true;
    }
    const auto found = m_registry.Find(kClass);
    EXPECT_EQ(std::set<fs::path>(found.begin(), found.end()),
              (std::set<fs::path>{"/always.so", "/0.39", "/1.39", "/2.39", "/3.39"}));
}

}  // namespace
}  // namespace kest
