// ombrel: command-line tools around Ombrel's card database.
#include <iostream>

#include "cli/commands.h"
#include "cli/memory_settings.h"
#include "cli/terminal.h"
#include "ombrel/foundation/error.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// The subcommand whose options were being parsed, for its own usage text.
const CLI::App* Deepest(const CLI::App& app) {
  for (const CLI::App* sub : app.get_subcommands()) return Deepest(*sub);
  return &app;
}

}  // namespace

int main(int argc, char** argv) {
  ombrel::cli::UseSearchMemorySettings();
  std::ios::sync_with_stdio(false);  // exports of a million cards go through std::cout
  CLI::App app{
      "Ombrel: find and resolve duplicate business cards in a card database; import, export and "
      "demo data.",
      "ombrel"};
  app.require_subcommand(1, 1);

  ombrel::cli::AddImportCommand(app);
  ombrel::cli::AddExportCommand(app);
  ombrel::cli::AddSampleCommand(app);
  ombrel::cli::AddFindCommand(app);
  ombrel::cli::AddApplyCommand(app);
  ombrel::cli::AddWizardCommand(app);
  ombrel::cli::AddMergeCardCommand(app);
  // New commands register here, in the order --help should list them.

  // Whatever a command printed must have reached its destination: a full
  // disk or a closed pipe is a failure, not a success.
  auto finish = [](int code) {
    try {
      ombrel::cli::FinishOutput();
    } catch (const ombrel::Error& e) {
      std::cerr << "error: " << e.Description() << "\n";
      return code == 0 ? kExitFailure : code;
    }
    return code;
  };
  // Messages may quote card values: shown escaped, with LF line breaks.
  auto fail = [](std::string_view message) {
    std::cerr << "error: " << ombrel::cli::Escaped(message, true) << "\n";
    return kExitFailure;
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& e) {  // --help
    return finish(app.exit(e));
  } catch (const CLI::RuntimeError& e) {  // the command has reported its failure itself
    return finish(e.get_exit_code());
  } catch (const CLI::ParseError& e) {
    std::cerr << "error: " << e.what() << "\n\n" << Deepest(app)->help();
    return kExitUsage;
  } catch (const ombrel::Error& e) {
    std::cout.flush();  // the failure to report is this one
    return fail(e.Description());
  } catch (const std::exception& e) {
    std::cout.flush();
    return fail(e.what());
  }
  return finish(0);
}
