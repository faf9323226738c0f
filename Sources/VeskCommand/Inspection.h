// What the files of `vesk inspect` share: each inspection answers with JSON about one file.
#pragma once

#include <functional>
#include <string>

#include "VeskCommand/CommandSupport.h"
#include "VeskCore/Support/Json.h"

namespace vesk::command {

/// A file's bytes: by its path from the current folder, else by its path in the vault if there is one. "-" is
/// standard input.
std::string inspectedBytes(const CommandContext& context, const std::string& typed);

CLI::App* addInspection(CLI::App& inspect, CommandContext& context, const std::string& name,
                        const std::string& description, const std::string& example,
                        const std::function<Json(const std::string& file)>& answer);

/// blocks, spans, tables, embeds, outline, highlight
void addEditorInspections(CLI::App& inspect, CommandContext& context);

}  // namespace vesk::command
