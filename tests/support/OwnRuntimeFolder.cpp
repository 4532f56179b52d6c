// A test program that links this has a runtime folder of its own: what filters publish there, other programs that
// run at the same time do not meet.
#include <cstdlib>
#include <filesystem>

namespace {

struct COwnRuntimeFolder {
    COwnRuntimeFolder() { setenv("XDG_RUNTIME_DIR", path.c_str(), 1); }
    ~COwnRuntimeFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string strTemplate = std::filesystem::temp_directory_path() / "kestXXXXXX";
    const std::filesystem::path path = mkdtemp(strTemplate.data());
};

const COwnRuntimeFolder g_folder;

}  // namespace
