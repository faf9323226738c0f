// The commands of `vesk`, by theme. Each function adds its commands to the program; a command's work runs as
// its callback, throws for failure, and answers on standard output.
#pragma once

namespace CLI {
class App;
}

namespace vesk::command {

struct CommandContext;

void addNoteCommands(CLI::App& program, CommandContext& context);  // list diagnose show new write rename move
void addPropertyCommands(CLI::App& program, CommandContext& context);   // props set unset
void addIndexCommands(CLI::App& program, CommandContext& context);      // index status
void addEmbeddingCommands(CLI::App& program, CommandContext& context);  // embed
void addSearchCommands(CLI::App& program,
                       CommandContext& context);  // search retrieve tags tasks links unresolved
void addInspectCommands(CLI::App& program, CommandContext& context);  // inspect …
void addSessionCommands(CLI::App& program, CommandContext& context);  // session
void addSaveCommands(CLI::App& program, CommandContext& context);     // save watch
void addSafetyCommands(CLI::App& program,
                       CommandContext& context);  // trash held conflicts remind reminders flag
void addFormatCommand(CLI::App& program, CommandContext& context);     // format
void addKeyCommands(CLI::App& program, CommandContext& context);       // key …
void addProviderCommands(CLI::App& program, CommandContext& context);  // providers …
void addAskCommands(CLI::App& program, CommandContext& context);       // ask act context
void addPlanCommands(CLI::App& program, CommandContext& context);      // plan … title
void addNotifyCommand(CLI::App& program, CommandContext& context);     // notify-service
void addGenerateCommand(CLI::App& program);  // completions and the man page, for packaging

}  // namespace vesk::command
