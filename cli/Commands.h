#pragma once

#include <string>
#include <vector>

namespace marlowick::cli {

// Each command takes the arguments after its name and returns the process's exit status:
// 0 on success, 1 when the work failed, 2 when the command line was wrong.
int runInfo(const std::vector<std::string>& args);
int runResave(const std::vector<std::string>& args);
int runZoom(const std::vector<std::string>& args);
int runFrame(const std::vector<std::string>& args);
int runMix(const std::vector<std::string>& args);
int runSilence(const std::vector<std::string>& args);
int runPresets(const std::vector<std::string>& args);
int runExport(const std::vector<std::string>& args);
int runSample(const std::vector<std::string>& args);
int runRecord(const std::vector<std::string>& args);
int runStyle(const std::vector<std::string>& args);
int runSet(const std::vector<std::string>& args);
int runImport(const std::vector<std::string>& args);
int runCaptions(const std::vector<std::string>& args);
int runRecover(const std::vector<std::string>& args);

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

bool wantsHelp(const std::vector<std::string>& args);

} // namespace marlowick::cli
