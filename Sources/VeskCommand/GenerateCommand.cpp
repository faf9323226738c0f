// Shell completions and the man page, drawn from the commands themselves so that they never fall behind.
#include <fmt/core.h>

#include <algorithm>
#include <functional>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCore/Support/Text.h"

namespace vesk::command {
namespace {

using Apps = std::vector<const CLI::App*>;

Apps subcommandsOf(const CLI::App& app) {
    auto all = app.get_subcommands([](const CLI::App*) { return true; });
    Apps shown;
    for (const auto* sub : all) {
        if (!sub->get_group().empty()) shown.push_back(sub);
    }
    return shown;
}

std::vector<std::string> flagsOf(const CLI::App& app) {
    std::vector<std::string> flags;
    for (const auto* option : app.get_options()) {
        for (const auto& name : option->get_lnames()) flags.push_back("--" + name);
    }
    return flags;
}

/// Every command with the words that lead to it: {"key", "set"}.
void eachCommand(const CLI::App& app, std::vector<std::string> words,
                 const std::function<void(const CLI::App&, const std::vector<std::string>&)>& visit) {
    for (const auto* sub : subcommandsOf(app)) {
        auto deeper = words;
        deeper.push_back(sub->get_name());
        visit(*sub, deeper);
        eachCommand(*sub, deeper, visit);
    }
}

std::string names(const CLI::App& app) {
    std::vector<std::string> list;
    for (const auto* sub : subcommandsOf(app)) list.push_back(sub->get_name());
    return join(list, " ");
}

std::string bash(const CLI::App& program) {
    std::string cases;
    eachCommand(program, {}, [&](const CLI::App& app, const std::vector<std::string>& words) {
        cases += fmt::format("        \"{}\") words=\"{} {}\" ;;\n", join(words, " "), names(app),
                             join(flagsOf(app), " "));
    });
    return fmt::format(R"(# bash completion for vesk
_vesk() {{
    local cur=${{COMP_WORDS[COMP_CWORD]}} path="" words="" word i
    if [ "${{COMP_WORDS[COMP_CWORD-1]}}" = --vault ]; then
        compopt -o dirnames
        return
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${{COMP_WORDS[i]}}
        case " {} key inspect set show delete scan frontmatter chunks html css " in
            *" $word "*) path="${{path:+$path }}$word" ;;
        esac
    done
    case "$path" in
        "") words="{} {}" ;;
{}    esac
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
    [ ${{#COMPREPLY[@]}} -gt 0 ] || compopt -o default
}}
complete -F _vesk vesk
)",
                       names(program), names(program), join(flagsOf(program), " "), cases);
}

std::string quotedForZsh(const std::string& text) {
    auto quoted = replaceAll(text, "'", "'\\''");
    return replaceAll(replaceAll(quoted, ":", "\\:"), "[", "\\[");
}

std::string zsh(const CLI::App& program) {
    std::string list, cases;
    for (const auto* sub : subcommandsOf(program)) {
        list += fmt::format("    '{}:{}'\n", sub->get_name(), quotedForZsh(sub->get_description()));
        std::string arguments;
        for (const auto& flag : flagsOf(*sub)) arguments += fmt::format(" '{}'", flag);
        const auto deeper = names(*sub);
        cases +=
            fmt::format("    {}) {} ;;\n", sub->get_name(),
                        deeper.empty() ? "_arguments" + arguments + " '*:file:_files'"
                                       : fmt::format("_arguments '1:command:({})' '*:file:_files'", deeper));
    }
    return fmt::format(R"(#compdef vesk
local -a commands
commands=(
{})
_arguments -C '--vault[The folder of notes]:folder:_files -/' '--version' '--help' '1:command:->command' '*::argument:->argument'
case $state in
  command) _describe command commands ;;
  argument) case $words[1] in
{}  esac ;;
esac
)",
                       list, cases);
}

std::string fish(const CLI::App& program) {
    std::string text = "# fish completion for vesk\n";
    const auto quoted = [](const std::string& words) {
        return replaceAll(replaceAll(words, "\\", "\\\\"), "'", "\\'");
    };
    text += "complete -c vesk -n __fish_use_subcommand -l vault -r -d 'The folder of notes'\n";
    eachCommand(program, {}, [&](const CLI::App& app, const std::vector<std::string>& words) {
        const std::string condition = words.size() == 1
                                          ? std::string("__fish_use_subcommand")
                                          : fmt::format("__fish_seen_subcommand_from {}", words.front());
        text += fmt::format("complete -c vesk -n '{}' -a {} -d '{}'\n", condition, words.back(),
                            quoted(app.get_description()));
        for (const auto* option : app.get_options()) {
            for (const auto& name : option->get_lnames()) {
                text += fmt::format("complete -c vesk -n '__fish_seen_subcommand_from {}' -l {} -d '{}'\n",
                                    words.back(), name, quoted(option->get_description()));
            }
        }
    });
    return text;
}

std::string roff(std::string_view text) {
    auto escaped = replaceAll(replaceAll(text, "\\", "\\e"), "-", "\\-");
    if (escaped.starts_with('.') || escaped.starts_with('\'')) escaped.insert(0, "\\&");
    return escaped;
}

void manOptions(std::string& page, const CLI::App& app) {
    for (const auto* option : app.get_options()) {
        const auto name = option->get_name(true);
        if (name == "--help" || name.find("--help") != std::string::npos) continue;
        page += fmt::format(".TP\n.B {}\n{}\n", roff(name), roff(option->get_description()));
    }
}

std::string man(const CLI::App& program) {
    std::string page = fmt::format(
        ".TH VESK 1 \"\" \"vesk {}\" \"User Commands\"\n.SH NAME\nvesk \\- notes in a folder of Markdown "
        "files\n"
        ".SH SYNOPSIS\n.B vesk\n[\\-\\-vault DIR] COMMAND [ARGUMENTS]\n.SH DESCRIPTION\n{}\n.SH OPTIONS\n",
        VESK_VERSION, roff(program.get_description()));
    manOptions(page, program);
    page += ".SH COMMANDS\n";
    eachCommand(program, {}, [&](const CLI::App& app, const std::vector<std::string>& words) {
        std::string usage = join(words, " ");
        for (const auto* option : app.get_options()) {
            if (option->get_positional()) usage += " " + option->get_name(true);
        }
        page += fmt::format(".SS {}\n{}.\n", roff(usage), roff(app.get_description()));
        manOptions(page, app);
        const auto footer = app.get_footer();
        if (!footer.empty()) {
            page += ".PP\n.nf\n";
            for (auto line : splitLines(footer)) page += roff(line) + "\n";
            page += ".fi\n";
        }
    });
    page +=
        ".SH EXIT STATUS\n0 when done, 1 when it failed (the message is on standard error), 2 for wrong "
        "usage.\n"
        ".SH ENVIRONMENT\n.TP\n.B VESK_VAULT\nThe vault, where \\-\\-vault isn't given.\n.TP\n.B NO_COLOR\n"
        "No colour in the output.\n.SH FILES\n.TP\n.I ~/.config/vesk/defaults.json\nSettings.\n.TP\n"
        ".I ~/.local/share/Vesk/Indexes\nSearch indexes, rebuilt from the notes whenever they are missing.\n";
    return page;
}

}  // namespace

void addGenerateCommand(CLI::App& program) {
    auto* command = program.add_subcommand("generate", "Print a shell's completions or the man page");
    command->group("");  // for packaging, not shown
    auto kind = std::make_shared<std::string>();
    command->add_option("KIND", *kind)->required()->check(CLI::IsMember({"bash", "zsh", "fish", "man"}));
    command->callback([&program, kind] {
        const Terminal out(stdout);
        if (*kind == "bash") out.print(bash(program));
        if (*kind == "zsh") out.print(zsh(program));
        if (*kind == "fish") out.print(fish(program));
        if (*kind == "man") out.print(man(program));
    });
}

}  // namespace vesk::command
