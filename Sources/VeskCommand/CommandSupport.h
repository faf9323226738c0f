// Small things that every file of commands uses with CLI11.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "VeskCommand/CommandContext.h"

namespace vesk::command {

/// A command with its examples below the help, "$ vesk …" one a line.
inline CLI::App* addCommand(CLI::App& program, const std::string& name, const std::string& description,
                            const std::string& examples) {
    auto* command = program.add_subcommand(name, description);
    command->footer("Examples:\n" + examples);
    return command;
}

/// Adds --json.
inline void answersWithData(CLI::App* command, CommandContext& context) {
    command->add_flag("--json", context.json, "Print one JSON document");
}

}  // namespace vesk::command
