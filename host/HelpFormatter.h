#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kest {

/// The look of --help: lines of at most kWidth columns.
class CHelpFormatter final : public CLI::Formatter {
public:
    static constexpr std::size_t kWidth = 79;

    CHelpFormatter() { column_width(kNameWidth); }
    /// What an option does, in lines that fit beside the names of the options.
    std::string make_option_desc(const CLI::Option* pOption) const override;
    /// What an option is given, as the option table names it, and nothing else.
    std::string make_option_opts(const CLI::Option* pOption) const override;

private:
    static constexpr std::size_t kNameWidth = 26;
};

/// Breaks a text into lines of at most nWidth columns, where it has spaces.
std::string WrapText(const std::string& strText, std::size_t nWidth);

}  // namespace kest
