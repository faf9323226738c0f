#include <fmt/core.h>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/Inspection.h"
#include "VeskCommand/JsonForm.h"
#include "VeskCore/Index/Chunker.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::command {

std::string inspectedBytes(const CommandContext& context, const std::string& typed) {
    if (typed == "-") return readStandardInput();
    auto& files = *FilePlatform::current().files;
    std::error_code ignored;
    const auto here = standardised(std::filesystem::current_path(ignored) / typed);
    if (files.exists(here)) return files.read(here);
    try {
        const Vault vault = context.namedVault();
        const auto inVault = vault.absolutePath(context.notePath(vault, typed));
        if (files.exists(inVault)) return files.read(inVault);
    } catch (const CommandError&) {
        // No vault is known: the file stands for itself.
    }
    return files.read(here);
}

CLI::App* addInspection(CLI::App& inspect, CommandContext& context, const std::string& name,
                        const std::string& description, const std::string& example,
                        const std::function<Json(const std::string& file)>& answer) {
    auto* command = addCommand(inspect, name, description, example);
    auto file = std::make_shared<std::string>();
    command->add_option("FILE", *file, "A file, with or without a vault; - for standard input")->required();
    auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "What inspections print anyway");
    command->callback([&context, answer, file] { context.answer(answer(*file)); });
    return command;
}

namespace {

FrontmatterDoc docOf(const CommandContext& context, const std::string& typed) {
    return FrontmatterDoc(LineEndings::normalized(decodedText(inspectedBytes(context, typed))));
}

}  // namespace

void addInspectCommands(CLI::App& program, CommandContext& context) {
    auto* inspect = addCommand(program, "inspect", "What the readers see in one file, as JSON",
                               "  vesk inspect scan Note.md");
    inspect->require_subcommand(1);
    addInspection(*inspect, context, "scan", "Links, tags, headings, tasks and words of a note's body",
                  "  vesk inspect scan Note.md", [&context](const std::string& file) {
                      return toJson(MarkdownScanner::scan(docOf(context, file).body(), true));
                  });
    addInspection(*inspect, context, "frontmatter", "The slots of a note's properties and its body",
                  "  vesk inspect frontmatter Note.md",
                  [&context](const std::string& file) { return toJson(docOf(context, file)); });
    addInspection(
        *inspect, context, "chunks", "The passages that a note is cut into", "  vesk inspect chunks Note.md",
        [&context](const std::string& file) { return toJson(Chunker::chunks(docOf(context, file).body())); });
    addInspection(*inspect, context, "html", "The text that the index takes from a saved page",
                  "  vesk inspect html Page.html", [&context](const std::string& file) {
                      return toJson(HTMLText::extract(HTMLText::decode(inspectedBytes(context, file)), true));
                  });
    addInspection(*inspect, context, "css", "The text that the index takes from a stylesheet",
                  "  vesk inspect css style.css", [&context](const std::string& file) {
                      return Json::object(
                          {{"text", CSSText::indexable(HTMLText::decode(inspectedBytes(context, file)))}});
                  });
    addEditorInspections(*inspect, context);
    addInspection(*inspect, context, "language", "The language that most of a file's text is in",
                  "  vesk inspect language Note.md", [&context](const std::string& file) {
                      const auto code = context.languages.dominantLanguage(docOf(context, file).body());
                      return Json::object(
                          {{"language", code}, {"name", code ? Json(languageDisplayName(*code)) : Json()}});
                  });
}

}  // namespace vesk::command
