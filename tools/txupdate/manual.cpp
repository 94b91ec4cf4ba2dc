// SPDX-License-Identifier: MIT
#include "txupdate/manual.h"

#include <functional>
#include <utility>
#include <vector>

namespace tx::cli {

namespace {

/// Escapes a string for man(7), so that it contains no macros.
std::string escaped(const std::string &text) {
    std::string result;
    for (const char c : text) {
        const bool isFirst = result.empty() || result.back() == '\n';
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else if (isFirst && (c == '.' || c == '\''))
            result += std::string("\\&") + c;
        else
            result += c;
    }
    return result;
}

/// Formats a string whose line breaks must be kept.
std::string paragraph(const std::string &text) {
    std::string result;
    for (const char c : escaped(text)) {
        result += c;
        if (c == '\n')
            result += ".br\n";
    }
    return result + '\n';
}

std::vector<const CLI::App *> commandsOf(const CLI::App &application) {
    return application.get_subcommands([](const CLI::App *command) { return !command->get_name().empty(); });
}

std::vector<const CLI::Option *> optionsOf(const CLI::App &application) {
    return application.get_options([](const CLI::Option *) { return true; });
}

bool takesValue(const CLI::Option &option) { return option.get_items_expected_max() > 0; }

/// Calls `visit` for each command with its full name, such as "feed show".
void forEachCommand(const CLI::App &application, const std::string &words,
                    const std::function<void(const CLI::App &, const std::string &)> &visit) {
    for (const CLI::App *command : commandsOf(application)) {
        const std::string path = words.empty() ? command->get_name() : words + ' ' + command->get_name();
        visit(*command, path);
        forEachCommand(*command, path, visit);
    }
}

void writeOptions(const CLI::App &command, std::string &page) {
    for (const CLI::Option *option : optionsOf(command)) {
        const bool isPositional = option->get_positional();
        page += ".TP\n.B " + escaped(option->get_name(isPositional, !isPositional));
        if (!isPositional && takesValue(*option))
            page += " \\fI" + escaped(option->get_type_name()) + "\\fR";
        page += '\n' + paragraph(option->get_description());
    }
}

/// Lists the words that may follow a command.
std::string nextWords(const CLI::App &command) {
    std::string result;
    for (const CLI::App *each : commandsOf(command))
        result += each->get_name() + ' ';
    for (const CLI::Option *option : optionsOf(command)) {
        for (const std::string &name : option->get_lnames())
            result += "--" + name + ' ';
    }
    if (!result.empty())
        result.pop_back();
    return result;
}

std::string bashCompletion(const CLI::App &application) {
    std::string known;
    std::string words = "        \"\") words='" + nextWords(application) + "' ;;\n";
    forEachCommand(application, {}, [&](const CLI::App &command, const std::string &path) {
        known += (known.empty() ? "\"" : " | \"") + path + '"';
        words += "        \"" + path + "\") words='" + nextWords(command) + "' ;;\n";
    });
    return "_txupdate() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} path= words= next i\n"
           "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
           "        next=${path:+$path }${COMP_WORDS[i]}\n"
           "        case \"$next\" in\n            " +
           known +
           ") path=$next ;;\n        esac\n    done\n"
           "    case \"$path\" in\n" +
           words +
           "    esac\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
           "}\n"
           "complete -o default -F _txupdate txupdate\n";
}

/// Escapes a string for single quotes in fish.
std::string quoted(const std::string &text) {
    std::string result;
    for (const char c : text.substr(0, text.find('\n')))
        result += c == '\'' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return '\'' + result + '\'';
}

std::string fishCompletion(const CLI::App &application) {
    std::string result;
    for (const CLI::App *command : commandsOf(application))
        result += "complete -c txupdate -n __fish_use_subcommand -a " + command->get_name() + " -d " +
                  quoted(command->get_description()) + '\n';
    forEachCommand(application, {}, [&](const CLI::App &command, const std::string &path) {
        const std::string last = path.substr(path.rfind(' ') + 1);
        const std::string seen = "-n '__fish_seen_subcommand_from " + last + '\'';
        for (const CLI::App *each : commandsOf(command))
            result += "complete -c txupdate " + seen + " -a " + each->get_name() + " -d " +
                      quoted(each->get_description()) + '\n';
        for (const CLI::Option *option : optionsOf(command)) {
            for (const std::string &name : option->get_lnames())
                result += "complete -c txupdate " + seen + (takesValue(*option) ? " -r" : "") + " -l " +
                          name + " -d " + quoted(option->get_description()) + '\n';
        }
    });
    return result;
}

} // namespace

std::string manualPage(const CLI::App &application) {
    std::string page = ".TH TXUPDATE 1 \"\" \"TarvixUpdate " TARVIXUPDATE_VERSION "\"\n"
                       ".SH NAME\ntxupdate \\- publish, host and debug update feeds\n"
                       ".SH SYNOPSIS\n.B txupdate\n.I COMMAND\n[\\fIOPTION\\fR...]\n"
                       ".SH DESCRIPTION\n" +
                       paragraph(application.get_description()) + ".SH OPTIONS\n";
    writeOptions(application, page);
    page += ".SH COMMANDS\n";
    forEachCommand(application, {}, [&](const CLI::App &command, const std::string &path) {
        page += ".SS \"txupdate " + escaped(path) + "\"\n" + paragraph(command.get_description());
        writeOptions(command, page);
    });
    return page;
}

std::string completionFor(const CLI::App &application, const std::string &shell) {
    if (shell == "fish")
        return fishCompletion(application);
    const std::string script = bashCompletion(application);
    return shell == "zsh" ? "#compdef txupdate\nautoload -U +X bashcompinit && bashcompinit\n" + script
                          : script;
}

} // namespace tx::cli
