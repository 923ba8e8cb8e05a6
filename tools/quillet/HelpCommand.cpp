// quillet help [--man | --bash-completion]: the tool's help as a manual page
// or as a bash completion script, both read off the registered commands, so
// that they can never fall behind what the program accepts. The build runs
// it to make the installed quillet.1 and the completion script.

#include <iostream>
#include <sstream>

#include "Common.h"
#include "SystemLocale.h"

namespace quillet::tool {

namespace {

std::vector<const CLI::App*> Commands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

bool IsFlag(const CLI::Option& option) {
    return option.get_type_size() == 0;
}

std::string Usage(const CLI::App& command, const std::string& path) {
    std::string usage = path;
    for (const auto* option : command.get_options()) {
        if (!option->get_positional()) continue;
        std::string name = option->get_name(true);
        if (option->get_items_expected_max() > 1) name += "...";
        usage += " " + (option->get_required() ? name : "[" + name + "]");
    }
    return usage;
}

// --- manual page

// Text as roff reads it literally: backslashes and dashes escaped, and no
// line starting with a control character.
std::string Roff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
    return out;
}

void ManOptions(const CLI::App& command, std::ostream& out) {
    for (const auto* option : command.get_options()) {
        if (option->get_positional() || option->get_name() == "--help") continue;
        out << ".TP\n\\fB" << Roff(option->get_name(false, true)) << "\\fR";
        if (!IsFlag(*option)) out << " \\fI" << Roff(option->get_type_name()) << "\\fR";
        out << "\n" << Roff(option->get_description()) << "\n";
    }
}

void ManCommands(const CLI::App& group, const std::string& path, std::ostream& out) {
    for (const auto* command : Commands(group)) {
        std::string name = path + " " + command->get_name();
        if (command->get_name() == "help") continue;
        if (!Commands(*command).empty()) {
            ManCommands(*command, name, out);
            continue;
        }
        out << ".SS \"" << Roff(Usage(*command, name)) << "\"\n"
            << Roff(command->get_description()) << "\n";
        ManOptions(*command, out);
    }
}

void PrintMan(const CLI::App& app) {
    std::ostringstream out;
    out << ".TH QUILLET 1 \"\" \"quillet " QUILLET_VERSION "\" \"User Commands\"\n"
        << ".SH NAME\nquillet \\- direct access to file-based geographic data stores\n"
        << ".SH SYNOPSIS\n.B quillet\n\\fIGROUP\\fR \\fICOMMAND\\fR [\\fIoptions\\fR]\n"
        << ".SH DESCRIPTION\nEach command prints text for people, or JSON with \\fB\\-\\-json\\fR. "
           "Record numbers count from 1. Errors print one line on standard error naming the file "
           "and the problem. Commands that read or write table text take "
           "\\fB\\-\\-locale auto\\fR|\\fILANG\\fR.\n"
        << ".SH COMMANDS\n";
    ManCommands(app, "quillet", out);
    out << ".SH EXIT STATUS\n0 on success, 1 when a command failed or found damage, 2 on a usage "
           "error.\n"
        << ".SH ENVIRONMENT\n"
        << ".TP\nQUILLET_HOME\nA folder holding locale/codepage, the code page tables.\n"
        << ".TP\nQUILLET_CONFIG\nThe settings file (default ~/.config/quillet/settings).\n"
        << ".TP\nQUILLET_ACP, QUILLET_OEMCP, QUILLET_LANGID, QUILLET_COUNTRYID\n"
           "The system code pages and language the library reads table text with "
           "(default 1252, 437, 9, 1); \\fB\\-\\-locale\\fR sets them for one command.\n"
        << ".TP\nQUILLET_DEBUG\nSet: the library's diagnostics go to standard error.\n";
    std::cout << out.str();
}

// --- bash completion

std::string Words(const CLI::App& command) {
    std::string words;
    for (const auto* sub : Commands(command)) words += sub->get_name() + " ";
    for (const auto* option : command.get_options()) {
        if (option->get_positional()) continue;
        for (const auto& name : option->get_lnames()) words += "--" + name + " ";
        for (const auto& name : option->get_snames()) words += "-" + name + " ";
    }
    if (!words.empty()) words.pop_back();
    return words;
}

void CompletionCases(const CLI::App& command, const std::string& path, std::ostream& cases,
                     std::string& paths) {
    bool leaf = Commands(command).empty();
    cases << "        \"" << path << "\") words=\"" << Words(command) << "\"; leaf=" << leaf
          << " ;;\n";
    for (const auto* sub : Commands(command)) {
        std::string subPath = path.empty() ? sub->get_name() : path + " " + sub->get_name();
        paths += (paths.empty() ? "\"" : "|\"") + subPath + "\"";
        CompletionCases(*sub, subPath, cases, paths);
    }
}

std::string LocaleWords() {
    std::string words = "auto";
    for (const auto& locale : KnownLocales()) words += " " + locale.name;
    return words;
}

void PrintBashCompletion(const CLI::App& app) {
    std::ostringstream cases;
    std::string paths;
    CompletionCases(app, "", cases, paths);
    std::cout << "# bash completion for quillet, made by `quillet help --bash-completion`\n"
              << "_quillet() {\n"
              << "    local cur=\"${COMP_WORDS[COMP_CWORD]}\" command=\"\" word words leaf\n"
              << "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
              << "        case \"$command${command:+ }$word\" in\n"
              << "            " << paths << ") command=\"$command${command:+ }$word\" ;;\n"
              << "        esac\n"
              << "    done\n"
              << "    case \"$command\" in\n"
              << cases.str() << "    esac\n"
              << "    if [[ ${COMP_WORDS[COMP_CWORD-1]} == --locale ]]; then\n"
              << "        COMPREPLY=($(compgen -W \"" << LocaleWords()
              << "\" -- \"$cur\")); return\n"
              << "    fi\n"
              << "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
              << "    if [[ $leaf == 1 && $cur != -* ]]; then COMPREPLY+=($(compgen -f -- "
                 "\"$cur\")); fi\n"
              << "}\n"
              << "complete -o filenames -F _quillet quillet\n";
}

void Install(CLI::App& app) {
    auto* help = app.add_subcommand(
        "help", "The help of every command, as a manual page or a completion script");
    auto man = std::make_shared<bool>(false);
    auto bash = std::make_shared<bool>(false);
    auto* manFlag = help->add_flag("--man", *man, "Print the manual page (roff)");
    help->add_flag("--bash-completion", *bash, "Print the bash completion script")
        ->excludes(manFlag);
    help->callback([&app, man, bash] {
        if (*man) return PrintMan(app);
        if (*bash) return PrintBashCompletion(app);
        std::cout << app.get_formatter()->make_help(&app, "quillet", CLI::AppFormatMode::All);
    });
}

}  // namespace

QUILLET_TOOL_REGISTER([] { RegisterGroup("help", Install); });

}  // namespace quillet::tool
