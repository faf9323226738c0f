#include "VeskCore/Brain/VaultPlanner.h"

#include <algorithm>
#include <initializer_list>

#include "VeskCore/Brain/BalancedJson.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::VaultPlanner {

namespace {

constexpr std::string_view unnamedPlan = "Proposed changes";

using Keys = std::initializer_list<std::string_view>;

/// The first of the members that is text.
std::optional<std::string> text(const Json& object, Keys keys) {
    for (const auto key : keys) {
        if (auto found = object.string(key)) return found;
    }
    return std::nullopt;
}

bool isOneOf(std::string_view verb, Keys verbs) {
    return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
}

std::string_view withoutLeading(std::string_view path) {
    path = trim(path);
    while (path.starts_with('/')) path.remove_prefix(1);
    if (path.starts_with("./")) path.remove_prefix(2);
    return path;
}

/// A property's value as text; nesting beyond what JSON itself may have doesn't come here.
std::optional<std::string> stringValue(const Json& value) {
    if (const auto* string = value.asString()) return *string;
    if (const auto* array = value.asArray()) {
        std::vector<std::string> parts;
        for (const auto& element : *array) {
            if (auto part = stringValue(element)) parts.push_back(std::move(*part));
        }
        return join(parts, ", ");
    }
    if (value.asDouble()) return value.dump();
    return std::nullopt;
}

template <class Operation>
std::optional<VaultOperation> with(Operation operation) {
    return VaultOperation{std::move(operation)};
}

std::optional<VaultOperation> renameNote(const Json& object, const std::string& path) {
    const auto source = normalise(text(object, {"from", "old"}).value_or(path));
    if (source.empty()) return std::nullopt;
    auto folder = text(object, {"to_folder", "tofolder", "folder", "destination"});
    if (const auto target = text(object, {"to", "new"}); target && !target->empty()) {
        if (!trim(*target).ends_with('/')) {
            auto to = normalise(*target);
            if (to.empty()) return std::nullopt;
            return with(VaultOperation::RenameNote{.from = source, .to = std::move(to)});
        }
        folder = target;  // a folder by its spelling
    }
    if (!folder) return std::nullopt;
    return with(VaultOperation::RenameNote{
        .from = source, .to = joinedPath(normaliseFolder(*folder), lastComponent(source))});
}

std::optional<VaultOperation> renameFolder(const Json& object) {
    const auto from = text(object, {"from", "old", "folder"}).value_or("");
    const auto to = text(object, {"to", "new"}).value_or("");
    if (trim(from).empty() || trim(to).empty()) return std::nullopt;
    return with(VaultOperation::RenameFolder{.from = normaliseFolder(from), .to = normaliseFolder(to)});
}

std::optional<std::string_view> json(std::string_view reply) {
    if (const auto fenced = firstFenced(reply)) {
        if (const auto value = balancedJson(*fenced)) return value;
    }
    return balancedJson(reply);
}

[[noreturn]] void failAsMalformed(std::string_view detail) {
    throw VaultPlanError(VaultPlanError::Malformed{std::string(detail)});
}

}  // namespace

constinit const std::string_view planningInstructions =
    "\n"
    "WHEN THE USER ASKS YOU TO DO SOMETHING TO THE VAULT — organise it, rename things, add tags, "
    "split or merge notes — do not describe what they should do. Return a plan that Vesk will carry"
    " out for them.\n"
    "\n"
    "Reply with a short sentence of explanation, then a single JSON object in a ```json code block,"
    " in exactly this shape:\n"
    "\n"
    "```json\n"
    "{\n"
    "  \"summary\": \"one sentence describing the change as a whole\",\n"
    "  \"operations\": [\n"
    "    {\"op\": \"create\", \"path\": \"Folder/New Note.md\", \"content\": \"# Title\\n\\nBody\""
    "},\n"
    "    {\"op\": \"update\", \"path\": \"Existing.md\", \"content\": \"full new content\"},\n"
    "    {\"op\": \"rename\", \"from\": \"Old.md\", \"to\": \"Archive/New.md\"},\n"
    "    {\"op\": \"set_property\", \"path\": \"Note.md\", \"key\": \"status\", \"value\": \"done\""
    "},\n"
    "    {\"op\": \"remove_property\", \"path\": \"Note.md\", \"key\": \"draft\"},\n"
    "    {\"op\": \"trash\", \"path\": \"Obsolete.md\"},\n"
    "    {\"op\": \"create_folder\", \"path\": \"Archive\"},\n"
    "    {\"op\": \"rename_folder\", \"from\": \"Old Stuff\", \"to\": \"Archive/2024\"},\n"
    "    {\"op\": \"trash_folder\", \"path\": \"Empty Folder\"}\n"
    "  ]\n"
    "}\n"
    "```\n"
    "\n"
    "Rules that matter:\n"
    "- Use the exact note paths you were given. Do not invent paths, and do not   guess at notes "
    "you have not seen.\n"
    "- \"update\" replaces the note's ENTIRE contents, so include everything you   want kept, not "
    "just the part you changed.\n"
    "- \"rename\" moves a note when the folder differs, and it creates whatever   folders the new "
    "path needs. To file notes somewhere new, that is all you   need — do not add a \"create_folder"
    "\" for it.\n"
    "- \"create_folder\" is only for a folder that will stay empty, or one the   user asked for by "
    "name.\n"
    "- \"rename_folder\" moves a folder with everything inside it, so use it   instead of renaming "
    "each note one at a time.\n"
    "- \"trash_folder\" takes the folder AND every note under it. Use it only   when the user asked"
    " to get rid of the folder itself.\n"
    "- Folder paths have no \".md\" and never end in \"/\".\n"
    "- Prefer set_property over rewriting a note just to change one field.\n"
    "- Nothing is applied until the user approves it, so propose the whole   change rather than a "
    "first step.\n"
    "- Unless the instructions above asked for a specific reply structure,   keep the prose around "
    "the plan to one or two short sentences.   Either way, do NOT list the vault's folders, and do "
    "NOT walk   through the changes path by path in prose or restate them after   the JSON — the "
    "user reviews every operation, with its paths, in a   sheet before anything is applied, so a "
    "list in the reply only   buries your explanation.";

VaultPlan parse(std::string_view reply) {
    const auto found = json(reply);
    if (!found) throw VaultPlanError(VaultPlanError::NoPlanFound{});
    Json value;
    try {
        value = Json::parse(*found);
    } catch (const JsonError&) {
        failAsMalformed("it wasn't valid JSON");
    }
    VaultPlan plan{.summary = std::string(unnamedPlan), .operations = {}, .annotations = {}};
    const Json::Array* elements = value.asArray();
    if (value.asObject()) {
        if (auto summary = value.string("summary")) plan.summary = std::move(*summary);
        const Json* operations = value.find("operations");
        elements = operations ? operations->asArray() : nullptr;
    } else if (!elements) {
        failAsMalformed("the plan wasn't an object or a list");
    }
    if (!elements || elements->empty()) failAsMalformed("the plan contained no operations");
    for (const auto& element : *elements) {
        if (auto read = operation(element)) plan.operations.push_back(std::move(*read));
    }
    if (plan.operations.empty()) failAsMalformed("none of the operations were ones Vesk understands");
    return plan;
}

std::string removingPlanJSON(std::string_view reply) {
    constexpr std::string_view fence = "```";
    for (auto open = reply.find(fence); open != reply.npos;) {
        const auto fenced = firstFenced(reply.substr(open));
        if (!fenced) break;
        const auto after = reply.find(fence, open + fence.size()) + fence.size();
        if (balancedJson(*fenced)) {
            return std::string(trim(std::string(reply.substr(0, open)) + std::string(reply.substr(after))));
        }
        open = reply.find(fence, after);
    }
    return std::string(trim(reply));
}

std::optional<VaultOperation> operation(const Json& object) {
    if (!object.asObject()) return std::nullopt;
    const auto verb =
        replaceAll(lowercased(text(object, {"op", "operation", "action"}).value_or("")), "_", "");
    const auto written = text(object, {"path", "file", "note"}).value_or("");
    auto path = normalise(written);
    auto content = text(object, {"content", "text", "body"}).value_or("");
    auto key = text(object, {"key", "property"}).value_or("");
    // "/" names a folder: that this is the whole vault is told in the review.
    const auto named = text(object, {"path", "folder", "directory", "name"}).value_or(written);
    const bool namesFolder = !trim(named).empty();
    const auto folder = normaliseFolder(named);

    if (isOneOf(verb, {"create", "createnote", "new"})) {
        if (path.empty()) return std::nullopt;
        return with(VaultOperation::CreateNote{.path = std::move(path), .content = std::move(content)});
    }
    if (isOneOf(verb, {"update", "updatenote", "rewrite", "edit", "write"})) {
        if (path.empty() || content.empty()) return std::nullopt;
        return with(VaultOperation::UpdateNote{.path = std::move(path), .content = std::move(content)});
    }
    if (isOneOf(verb, {"rename", "renamenote", "move", "movenote"})) return renameNote(object, written);
    if (isOneOf(verb, {"setproperty", "setfrontmatter", "setmetadata", "addtag", "settag"})) {
        if (path.empty() || key.empty()) return std::nullopt;
        const Json* value = object.find("value");
        return with(VaultOperation::SetProperty{.path = std::move(path),
                                                .key = std::move(key),
                                                .value = value ? stringValue(*value).value_or("") : ""});
    }
    if (isOneOf(verb, {"removeproperty", "deleteproperty", "removetag"})) {
        if (path.empty() || key.empty()) return std::nullopt;
        return with(VaultOperation::RemoveProperty{.path = std::move(path), .key = std::move(key)});
    }
    if (isOneOf(verb, {"trash", "delete", "remove", "trashnote", "deletenote"})) {
        if (path.empty()) return std::nullopt;
        return with(VaultOperation::TrashNote{std::move(path)});
    }
    if (isOneOf(verb,
                {"createfolder", "newfolder", "makefolder", "mkdir", "adddirectory", "createdirectory"})) {
        if (!namesFolder) return std::nullopt;
        return with(VaultOperation::CreateFolder{folder});
    }
    if (isOneOf(verb, {"renamefolder", "movefolder", "renamedirectory", "movedirectory"})) {
        return renameFolder(object);
    }
    if (isOneOf(verb,
                {"trashfolder", "deletefolder", "removefolder", "deletedirectory", "removedirectory"})) {
        if (!namesFolder) return std::nullopt;
        return with(VaultOperation::TrashFolder{folder});
    }
    return std::nullopt;
}

std::string normalise(std::string_view path) {
    std::string clean(withoutLeading(path));
    if (!clean.empty() && pathExtension(clean).empty()) clean += ".md";
    return clean;
}

std::string normaliseFolder(std::string_view path) {
    path = withoutLeading(path);
    while (path.ends_with('/')) path.remove_suffix(1);
    return std::string(path);
}

}  // namespace vesk::VaultPlanner
