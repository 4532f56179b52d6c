#include "host/HelpFormatter.h"

#include <sstream>

namespace kest {

std::string WrapText(const std::string& strText, std::size_t nWidth) {
    std::istringstream words(strText);
    std::string strResult, strWord;
    std::size_t nColumn = 0;
    while (words >> strWord) {
        if (nColumn > 0 && nColumn + 1 + strWord.size() > nWidth) {
            strResult += '\n';
            nColumn = 0;
        } else if (nColumn > 0) {
            strResult += ' ';
            ++nColumn;
        }
        strResult += strWord;
        nColumn += strWord.size();
    }
    return strResult;
}

std::string CHelpFormatter::make_option_desc(const CLI::Option* pOption) const {
    return WrapText(pOption->get_description(), kWidth - kNameWidth);
}

std::string CHelpFormatter::make_option_opts(const CLI::Option* pOption) const {
    return pOption->get_option_text().empty() ? "" : " " + pOption->get_option_text();
}

}  // namespace kest
