// The subcommands: each declares itself on the application and says what to run when chosen.
#pragma once

#include "cli/shared/CommandLine.h"

namespace stowline::cli {

/// @param bundle that was named and so comes before what they keep; empty: none. It must outlive
///        the command
void declareConnect(const Command& app, const std::string& bundle);
void declareDisconnect(const Command& app, const std::string& bundle);
void declareSignUp(const Command& app);
void declareSignIn(const Command& app);
void declareEncryption(const Command& app);
void declareAccount(const Command& app);
void declareBackup(const Command& app);
void declareUploads(const Command& app);
void declareRestore(const Command& app);
void declareCat(const Command& app);
void declareRuns(const Command& app);
void declareDiff(const Command& app);
void declareVerify(const Command& app);
void declareSystems(const Command& app);
void declareList(const Command& app);
void declareSearch(const Command& app);
void declareVersions(const Command& app);
void declareRestoreInfo(const Command& app);
void declareRemove(const Command& app);
void declareForget(const Command& app);
void declareUndelete(const Command& app);
void declareMonitor(const Command& app);
void declareReport(const Command& app);
void declareEmail(const Command& app);
void declareChecksum(const Command& app);
void declareCopy(const Command& app);
void declarePaths(const Command& app);
void declareLinks(const Command& app);
/// @param program and bundle count for the scheduled runs; they must outlive the command
void declareSchedule(const Command& app, CLI::App& program, const std::string& bundle);
void declareSettings(const Command& app);
/// @param program whose configuration file is meant, with all commands; it must outlive the command
void declareConfig(const Command& app, CLI::App& program);
void declareDoctor(const Command& app);

} // namespace stowline::cli
