// The user's list of modules, as several programs at once read and change it.
#include "registration/ModuleRegistry.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <list>

#include "registration/Module.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

const std::string kClassLine = "class {00000000-0000-0000-C000-000000000046} A class\n";
using Paths = std::vector<fs::path>;

class ModuleRegistry : public testing::Test {
protected:
    ModuleRegistry() { fs::create_directories(m_file.parent_path()); }
    ~ModuleRegistry() override { fs::remove_all(m_dir); }
    std::string Text() const {
        std::ifstream file(m_file);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const fs::path m_dir = fs::temp_directory_path() / ("kest_registry_test." + std::to_string(getpid()));
    const fs::path m_file = m_dir / "kestdemux2/modules";
    CModuleRegistry m_registry{m_file};
};

TEST_F(ModuleRegistry, ReadsAndKeepsWhatSomebodyElseHasWritten) {
    const std::string strNul("/a\0b", 4), strNoUtf8 = "/a b\xFF.so";
    fs::create_symlink(m_dir / "real", m_file);
    std::ofstream(m_file) << "# mine\n\nmodule \nmodule relative.so\n" + kClassLine + "module " + strNul +
                                 "\n" + kClassLine + "module /2.so\r\n" + kClassLine +
                                 "module /3.so\nclass {00";
    EXPECT_EQ(m_registry.Find(IID_IUnknown), Paths{"/2.so"});
    m_registry.Add(strNoUtf8, kClassLine.substr(0, 44) + "\n");  // a class without a name
    EXPECT_EQ(m_registry.Find(IID_IUnknown), (Paths{strNoUtf8, "/2.so"}));
    m_registry.Add("/2.so", kClassLine + "merit 0x1\n");
    EXPECT_EQ(m_registry.Find(IID_IUnknown), (Paths{"/2.so", strNoUtf8}));
    for (const fs::path& module : Paths{"", "relative.so", strNul, "/3.so", strNoUtf8}) {
        EXPECT_TRUE(m_registry.Remove(module) && !m_registry.Remove(module)) << module;
    }
    EXPECT_TRUE(fs::is_symlink(m_file));
    EXPECT_EQ(Text(), "# mine\n\nmodule /2.so\n" + kClassLine + "merit 0x1\n");
}

TEST_F(ModuleRegistry, WhatCannotBeReadOrWrittenIsReportedAndLeavesTheListAsItWas) {
    m_registry.Add("/one.so", kClassLine);
    for (const fs::path& module : Paths{"relative.so", "/line\nend.so", "/line.so\r"}) {
        EXPECT_THROW(m_registry.Add(module, kClassLine), fs::filesystem_error) << module;
    }
    EXPECT_THROW(CModuleRegistry("/dev/zero").Find(IID_IUnknown), fs::filesystem_error);
    fs::create_symlink("/dev/full", m_file.string() + ".new");  // where the new list is written
    unsetenv("HOME");
    for (const auto& [data, hr] :
         {std::pair(m_dir, HRESULT_FROM_WIN32(112)), std::pair(m_file, E_FAIL),
          std::pair(fs::path("/sys"), E_ACCESSDENIED), std::pair(fs::path("a"), E_FAIL)}) {
        setenv("XDG_DATA_HOME", data.c_str(), 1);
        EXPECT_EQ(RegisterModule("/two.so", {}), hr) << data;
    }
    EXPECT_EQ(Text(), "module /one.so\n" + kClassLine);
    fs::remove(m_file);
    mkfifo(m_file.c_str(), 0600);
    EXPECT_TRUE(m_registry.Find(IID_IUnknown).empty());  // and does not wait for a writer
}

TEST_F(ModuleRegistry, StressLosesNothingBetweenWritersAndShowsNoHalfList) {
    std::list<CTestThread> threads;
    for (const std::string strOwn : {"/a", "/b", "/c", "/d"}) {
        threads.emplace_back([&, strOwn] {
            for (int i = 0; i < 25; ++i) {
                m_registry.Add(strOwn + std::to_string(i), kClassLine);
                EXPECT_LE(m_registry.Find(IID_IUnknown).size(), 8);
                EXPECT_EQ(m_registry.Remove(strOwn + std::to_string(i - 1)), i > 0);
            }
        });
    }
    threads.clear();
    Paths found = m_registry.Find(IID_IUnknown);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (Paths{"/a24", "/b24", "/c24", "/d24"}));
}

}  // namespace
}  // namespace kest
