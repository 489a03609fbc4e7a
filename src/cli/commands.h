// The subcommands of the ombrel tool. Each Add*Command registers one
// subcommand on the application: its options, its --help text and the
// callback that runs it. A callback reports failure by throwing (ombrel::Error
// or any std::exception); main turns that into "error: ..." and exit code 1,
// and a usage error into the usage text and exit code 2. A command that has
// already said why it failed throws CLI::RuntimeError(exit code) instead.
#pragma once

#include <CLI/CLI.hpp>

namespace ombrel::cli {

// Card databases.
void AddImportCommand(CLI::App& app);  // cmd_import.cpp
void AddExportCommand(CLI::App& app);  // cmd_export.cpp
void AddSampleCommand(CLI::App& app);  // cmd_sample.cpp

// The duplicate search and applying its result.
void AddFindCommand(CLI::App& app);   // cmd_find.cpp
void AddApplyCommand(CLI::App& app);  // cmd_apply.cpp

// The windows.
void AddWizardCommand(CLI::App& app);     // cmd_wizard.cpp
void AddMergeCardCommand(CLI::App& app);  // cmd_merge_card.cpp

// A new command: declare its Add*Command here, define it in its own
// cmd_*.cpp, and call it from main.cpp.

}  // namespace ombrel::cli
