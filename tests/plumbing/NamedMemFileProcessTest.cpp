// Named memory between processes, where it is a file: its life, and who may reach it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <barrier>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "plumbing/NamedMemFile.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "KestTest.obj";

int Open(CNamedMemFile& file, int nMode) { return file.Open(nMode, nullptr, kName, nullptr, 48, 0); }

/// Runs a function in a process of its own. @return the process.
pid_t Fork(const std::function<int()>& run) {
    const pid_t nProcess = fork();
    if (nProcess == 0) _exit(run());
    return nProcess;
}

/// A runtime folder of its own.
class NamedMemFileProcess : public testing::Test {
protected:
    NamedMemFileProcess() {
        fs::permissions(m_root, fs::perms::all);
        setenv("XDG_RUNTIME_DIR", m_root.c_str(), 1);
    }
    ~NamedMemFileProcess() override { fs::remove_all(m_root); }

    std::string m_strTemplate = fs::temp_directory_path() / "kestXXXXXX";
    const fs::path m_root = mkdtemp(m_strTemplate.data());
    const fs::path m_folder = m_root / ("kestdemux2-" + std::to_string(geteuid()));
    CNamedMemFile m_file;
};

// It leaves a file with a record posted and the lock taken.
TEST_F(NamedMemFileProcess, AKilledHolderLeavesNothingThatCounts) {
    for (const bool bHeld : {false, true}) {  // by another object when it is killed
        for (const int nMode : {MEMFILE_OPEN, MEMFILE_CREATE}) {
            SCOPED_TRACE(testing::Message() << nMode << ' ' << bHeld);
            const pid_t nHolder = Fork([] {
                CNamedMemory memory;
                if (memory.Create(kName, 48) != CNamedMemory::EResult::Done || !memory.try_lock()) return 1;
                std::atomic_ref(*memory.GetView()) = 7;
                memory.Signal();
                return pause();
            });
            std::uint8_t n = 0;
            CNamedMemFile other;
            EXPECT_TRUE(
                Eventually([&] { return Open(other, MEMFILE_OPEN) + other.Read(&n, 1) == 2 && n == 7; }));
            EXPECT_EQ(other.WaitRead(&n, 1), 0) << "the lock is taken";
            if (!bHeld) other.Close();
            kill(nHolder, SIGKILL);
            waitpid(nHolder, nullptr, 0);
            EXPECT_TRUE(fs::exists(m_folder / kName));
            EXPECT_EQ(Open(m_file, nMode), bHeld || nMode == MEMFILE_CREATE ? 1 : -2);
            EXPECT_EQ(m_file.WaitRead(&n, 1), bHeld);
            EXPECT_EQ(m_file.Read(&n, 1) == 1 ? n : 0, bHeld ? 7 : 0);
            for (auto* pFile : {&other, &m_file}) pFile->Close();
            EXPECT_TRUE(fs::is_empty(m_folder));
        }
    }
}

// Who is there at the same time has the same block, and the last one removes it.
TEST_F(NamedMemFileProcess, ComingAndGoingStress) {
    std::barrier<> barrier(2);
    std::atomic<bool> bEnd{false};
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(800);
    auto Run = [&](bool bFirst) {
        CNamedMemFile file;
        for (int nRound = 1; !bEnd; ++nRound) {
            for (int i = 0; i < 2; ++i) {  // at first nobody has it open, then the other one just closes it
                Open(file, MEMFILE_CREATE);
                barrier.arrive_and_wait();
                if (bFirst) file.Write(&nRound, sizeof nRound);
                barrier.arrive_and_wait();
                int nRead = 0;
                EXPECT_TRUE(file.Read(&nRead, sizeof nRead) == 1 && nRead == nRound);
                Spin(nRound * (bFirst ? 7 : 11) % 1000);
                file.Close();
            }
            barrier.arrive_and_wait();
            EXPECT_TRUE(fs::is_empty(m_folder)) << nRound;
            if (bFirst) bEnd = HasFailure() || std::chrono::steady_clock::now() > end;
            barrier.arrive_and_wait();
        }
    };
    CTestThread first([&] { Run(true); }), second([&] { Run(false); });
}

TEST_F(NamedMemFileProcess, OnlyTheUsersOwnIsUsed) {
    constexpr uid_t kOther = 65534;  // as whom only root can act
    const fs::path path = m_folder / kName, victim = m_root / "victim", folder = m_root / "folder";
    Open(m_file, MEMFILE_CREATE);
    if (geteuid() == 0) {
        int nStatus = -1;
        waitpid(Fork([&] {
                    CNamedMemFile own;
                    const bool bOutside = setuid(kOther) == 0 && open(path.c_str(), O_RDONLY) < 0;
                    return bOutside ? Open(own, MEMFILE_OPEN) : 0;
                }),
                &nStatus, 0);
        EXPECT_EQ(WEXITSTATUS(nStatus), -2 & 0xFF);
    }
    fs::copy_file(path, victim);  // with its rights
    m_file.Close();
    fs::create_symlink(victim, path);
    EXPECT_EQ(Open(m_file, MEMFILE_CREATE), -2);
    fs::rename(victim, path);
    EXPECT_EQ(chmod(path.c_str(), 0644), 0);  // for all to read
    EXPECT_EQ(Open(m_file, MEMFILE_CREATE), -2);
    EXPECT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(chown(path.c_str(), kOther, 0) ? -2 : Open(m_file, MEMFILE_CREATE), -2) << "another one's";
    EXPECT_TRUE(fs::remove(path));
    fs::rename(m_folder, folder);
    fs::create_directory_symlink(folder, m_folder);
    Open(m_file, MEMFILE_CREATE);  // elsewhere, where that can be
    EXPECT_TRUE(fs::is_empty(folder));
}

}  // namespace
}  // namespace kest
