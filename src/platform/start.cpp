#include "platform/start.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/host/host_options.h"
#include "platform/host/host_system.h"
#include "platform/simulated/simulated_machine.h"
#include "platform/system_machine.h"

namespace {

constexpr int kBadOptionStatus = 1;

[[noreturn]] void EndWithProblem(std::string problem) {
  for (char& character : problem) {
    character = character >= 0 && character < ' ' ? '?' : character;  // one line, whatever a file's name holds
  }
  std::fprintf(stderr, "korventix: %s\n", problem.c_str());
  std::exit(kBadOptionStatus);
}

[[noreturn]] void EndWithText(std::string_view text) {
  SimulatedMachine machine({}, {});
  machine.WriteText(machine.StandardOutput(), text);
  machine.Exit(0);
}

}  // namespace

Platform& StartPlatform(int argc, char** argv) {
  IgnoreWriteSignals();
  const std::vector<std::string> arguments = HostArguments(argc, argv);
  HostOptions options;
  std::string problem;
  if (!ParseHostOptions(arguments, options, problem)) {
    EndWithProblem(problem);
  }
  if (options.version) {
    EndWithText("KORVENTIX v" KORVENTIX_VERSION "\r\n");
  }
  if (options.help) {
    EndWithText(HostHelpText());
  }
  std::vector<AttachedDrive> drives;
  if (!AttachImages(options.drives, drives, problem)) {
    EndWithProblem(problem);
  }
  HostSettings settings{CommandLineBehind(arguments, options.consumed), options.seed, options.no_wait};
  // The one machine of the run; it goes with the process. With an attached drive no real one can be reached.
  static const std::unique_ptr<Platform> machine =
      drives.empty() ? SystemMachine(std::move(settings))
                     : std::make_unique<SimulatedMachine>(std::move(settings), std::move(drives));
  return *machine;
}
