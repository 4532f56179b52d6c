#include "host/Documentation.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include "host/OutputFile.h"

namespace kest {
namespace {

/// The commands that help shows, in its order.
std::vector<const CLI::App*> GetCommands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* pCommand) { return !pCommand->get_group().empty(); });
}

/// The options of the program or of a command that have a name to be typed.
std::vector<const CLI::Option*> GetOptions(const CLI::App& app) {
    return app.get_options([](const CLI::Option* pOption) { return pOption->nonpositional(); });
}

/// All names of an option, as they are typed.
std::vector<std::string> GetNames(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& strName : option.get_snames()) names.push_back("-" + strName);
    for (const std::string& strName : option.get_lnames()) names.push_back("--" + strName);
    return names;
}

std::string Join(const std::vector<std::string>& words, const char* pszBetween) {
    std::string strText;
    for (const std::string& strWord : words) strText += (strText.empty() ? "" : pszBetween) + strWord;
    return strText;
}

// ---------------- the man page

/// A text as the formatter of man pages prints it unchanged.
std::string Escape(const std::string& strText) {
    std::string strResult;
    for (const char c : strText) {
        if (c == '\\') {
            strResult += "\\e";
        } else if (c == '-') {
            strResult += "\\-";
        } else if ((c == '.' || c == '\'') && (strResult.empty() || strResult.back() == '\n')) {
            strResult.append("\\&") += c;
        } else {
            strResult += c;
        }
    }
    return strResult;
}

std::string ManOptions(const CLI::App& app) {
    std::string strText;
    for (const CLI::Option* pOption : GetOptions(app)) {
        strText += ".TP\n\\fB" + Escape(Join(GetNames(*pOption), ", ")) + "\\fR";
        if (!pOption->get_option_text().empty())
            strText += " \\fI" + Escape(pOption->get_option_text()) + "\\fR";
        strText += "\n" + Escape(pOption->get_description()) + "\n";
    }
    return strText;
}

/// The arguments that are no options.
std::string ManArguments(const CLI::App& app) {
    std::string strText;
    for (const CLI::Option* pOption :
         app.get_options([](const CLI::Option* p) { return p->get_positional(); })) {
        strText += " \\fI" + Escape(pOption->get_name(true)) + "\\fR";
    }
    return strText;
}

/// A footer, in which a line that begins with spaces is an example.
std::string ManFooter(const std::string& strFooter) {
    std::string strText = ".PP\n";
    std::istringstream lines(strFooter);
    for (std::string strLine; std::getline(lines, strLine);) {
        if (strLine.starts_with("  ")) {
            strText += ".PP\n.nf\n.RS\n" + Escape(strLine.substr(2)) + "\n.RE\n.fi\n";
        } else {
            strText += Escape(strLine) + "\n";
        }
    }
    return strText;
}

// ---------------- completion

/// The values of an option whose text lists them: those in small letters.
std::vector<std::string> GetChoices(const CLI::Option& option) {
    std::vector<std::string> choices;
    std::istringstream words(option.get_option_text());
    if (option.get_option_text().find('|') == std::string::npos) return choices;
    for (std::string strWord; std::getline(words, strWord, '|');) {
        if (std::ranges::all_of(strWord, [](unsigned char c) { return std::islower(c); }))
            choices.push_back(strWord);
    }
    return choices;
}

std::string JoinOptionNames(const CLI::App& app) {
    std::vector<std::string> all;
    for (const CLI::Option* pOption : GetOptions(app))
        std::ranges::copy(GetNames(*pOption), std::back_inserter(all));
    return Join(all, " ");
}

std::string MakeManPage(const CLI::App& app) {
    std::string strText =
        ".\\\" Made from the program's option table.\n.TH KESTDEMUX 1 \"\" \"" KEST_VERSION
        "\" \"User Commands\"\n.SH NAME\nkestdemux \\- separate MPEG streams\n"
        ".SH SYNOPSIS\n\\fBkestdemux\\fR \\fICOMMAND\\fR [\\fIOPTION\\fR]...\n.SH DESCRIPTION\n";
    strText += Escape(app.get_description()) + "\n.SH OPTIONS\n" + ManOptions(app) + ".SH COMMANDS\n";
    for (const CLI::App* pCommand : GetCommands(app)) {
        strText += ".SS " + Escape(pCommand->get_name()) + "\n" + Escape(pCommand->get_description()) +
                   ".\n.PP\n\\fBkestdemux " + Escape(pCommand->get_name()) + "\\fR [\\fIOPTION\\fR]..." +
                   ManArguments(*pCommand) + "\n" + ManOptions(*pCommand) + ManFooter(pCommand->get_footer());
    }
    return strText + ".SH NOTES\n" + ManFooter(app.get_footer());
}

std::string MakeBashCompletion(const CLI::App& app) {
    std::vector<std::string> names;
    std::string strValues, strOptions;
    for (const CLI::App* pCommand : GetCommands(app)) {
        const std::string& strName = pCommand->get_name();
        names.push_back(strName);
        strOptions += "        " + strName + ") words='" + JoinOptionNames(*pCommand) + "' ;;\n";
        for (const CLI::Option* pOption : GetOptions(*pCommand)) {
            const auto choices = GetChoices(*pOption);
            if (choices.empty()) continue;
            strValues += "        '" + strName + " " + GetNames(*pOption).back() + "') choices='" +
                         Join(choices, " ") + "' ;;\n";
        }
    }
    return "# Completion of kestdemux for bash, made from the program's option table.\n"
           "_kestdemux() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command= i words "
           "choices=\n"
           "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
           "        case ${COMP_WORDS[i]} in\n"
           "        " +
           Join(names, " | ") +
           ") command=${COMP_WORDS[i]} && break ;;\n"
           "        esac\n"
           "    done\n"
           "    COMPREPLY=()\n"
           "    case \"$command $before\" in\n" +
           strValues +
           "    esac\n"
           "    if [ -n \"$choices\" ]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$choices\" -- \"$word\")\n"
           "        return\n"
           "    fi\n"
           "    case $command in\n"
           "        '') words='" +
           Join(names, " ") + " " + JoinOptionNames(app) + "' ;;\n" + strOptions +
           "    esac\n"
           "    # File names are completed where nothing else fits.\n"
           "    [[ -n $command && $word != -* ]] || mapfile -t COMPREPLY < <(compgen -W \"$words\" -- "
           "\"$word\")\n"
           "}\n"
           "complete -o bashdefault -o default -F _kestdemux kestdemux\n";
}

}  // namespace

void WriteDocumentation(const CLI::App& app, const std::filesystem::path& folder) {
    WriteTextFile(folder / "kestdemux.1", true, MakeManPage(app));
    WriteTextFile(folder / "kestdemux.bash", true, MakeBashCompletion(app));
}

}  // namespace kest
