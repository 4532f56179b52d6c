#pragma once

#include <fstream>
#include <iterator>
#include <string>

#include "support/ProgramStreamBuilder.h"

namespace kest {

/// The path of a real stream in tests/data.
inline std::string TestDataPath(const std::string& strName) {
    return std::string(KEST_TEST_DATA) + "/" + strName;
}

inline ByteVector ReadTestData(const std::string& strName) {
    std::ifstream file(TestDataPath(strName), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kest
