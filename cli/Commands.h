// The subcommands: each declares itself on the application and says what to run when chosen.
#pragma once

#include "cli/ExitStatus.h"

#include <CLI/App.hpp>

#include <functional>

namespace stowline::cli {

/// Where a subcommand leaves what is to be run; called after all options are known.
using Chosen = std::function<ExitStatus()>;

void declareSignUp(CLI::App& app, Chosen& chosen);
void declareSignIn(CLI::App& app, Chosen& chosen);
void declareEncryption(CLI::App& app, Chosen& chosen);
void declareAccount(CLI::App& app, Chosen& chosen);
void declareBackup(CLI::App& app, Chosen& chosen);
void declareUploads(CLI::App& app, Chosen& chosen);
void declareSystems(CLI::App& app, Chosen& chosen);
void declareList(CLI::App& app, Chosen& chosen);
void declareSearch(CLI::App& app, Chosen& chosen);
void declareVersions(CLI::App& app, Chosen& chosen);
void declareRestoreInfo(CLI::App& app, Chosen& chosen);
void declareRemove(CLI::App& app, Chosen& chosen);
void declareMonitor(CLI::App& app, Chosen& chosen);
void declareReport(CLI::App& app, Chosen& chosen);
void declareEmail(CLI::App& app, Chosen& chosen);
void declareChecksum(CLI::App& app, Chosen& chosen);
void declareCopy(CLI::App& app, Chosen& chosen);
void declarePaths(CLI::App& app, Chosen& chosen);
void declareLinks(CLI::App& app, Chosen& chosen);
void declareSettings(CLI::App& app, Chosen& chosen);
void declareDoctor(CLI::App& app, Chosen& chosen);

} // namespace stowline::cli
