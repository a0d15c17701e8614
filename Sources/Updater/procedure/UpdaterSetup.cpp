// How the updater learns what to install: the server's definition file or the built-in rules.

#include <exception>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "Updater/procedure/Updater.h"
#include "logging/QDLog.h"

utils::AgentSetupDef Updater::parseAgentSetupCfg(const std::string& text) {
  static const utils::AgentSetupDef emptySetupCfg;
  try {
    return utils::chooseSetup(text, os, arch, distrib);
  } catch (const std::exception& e) {
    QDLOG(ROOT, ERR, "Parsing error : " << e.what());
    return emptySetupCfg;
  }
}

utils::SetuParameter Updater::getAgentSetup() {
  std::string text;
  HttpClient::Headers headers;
  utils::SetuParameter p;
  if (httpClient.get(serverUrl + "/agent_setup_def.json", text, headers) != 0) {
    QDLOG(ROOT, WRN, "Failed to get agent setup definition file - use legacy definition");
    switch (os) {
      case utils::OsWindows:
        return fillDefaultSetupParamForWindows(p);
      case utils::OsMacOSX:
        return fillDefaultSetupParamForMacOSX(p);
      case utils::OsLinux:
        return fillDefaultSetupParamForLinux(p);
      case utils::OsUnknown:
        break;
    }
    throw std::runtime_error("Unknow OS");
  }

  const utils::AgentSetupDef entry = parseAgentSetupCfg(text);
  if (entry.setup.empty()) throw std::runtime_error("Fail to parse agent_setup_def file");
  QDLOG(ROOT, DBG, "Use agent setup definition file");
  utils::fillFromDefinition(p, entry, serverUrl, tempDir);
  distrib = utils::stringToAgentDistrib(entry.setup);
  switch (os) {
    case utils::OsWindows:
      return fillInstallSetupParamForWindows(p);
    case utils::OsMacOSX:
      return fillInstallSetupParamForMacOSX(p);
    case utils::OsLinux:
      return fillInstallSetupParamForLinux(p);
    case utils::OsUnknown:
      break;
  }
  throw std::runtime_error("Unknow OS");
}

utils::SetuParameter& Updater::fillDefaultSetupParamForWindows(utils::SetuParameter& p) {
  utils::fillWindowsLayout(p, serverUrl, tempDir);
  return fillInstallSetupParamForWindows(p);
}

utils::SetuParameter& Updater::fillDefaultSetupParamForMacOSX(utils::SetuParameter& p) {
  SetupInfo info;
  if (getSetupRootPath(serverUrl, utils::agentArchToString(arch), info) != 0) {
    static constexpr const char* kFailure = "Failed to get any correct setup paths";
    QDLOG(ROOT, ERR, kFailure);
    throw std::runtime_error(kFailure);
  }
  const std::string root = info.rootPath + "/";
  p.setupName = info.setupName;
  p.setupUrl = root + p.setupName;
  p.hashUrl = root + p.setupName + ".md5";
  p.versionUrl = root + "version_long.txt";
  distrib = utils::stringToAgentDistrib(p.setupName);
  p.setupSize = info.setupSize;
  p.versionContent = info.versionContent;
  p.pkgName = info.pkgName;
  p.setupPath = utils::joinPath(tempDir, p.setupName);
  return fillInstallSetupParamForMacOSX(p);
}

utils::SetuParameter& Updater::fillDefaultSetupParamForLinux(utils::SetuParameter& p) {
  if (!utils::fillLinuxLayout(p, serverUrl, tempDir, arch, distrib)) return p;
  return fillInstallSetupParamForLinux(p);
}

utils::SetuParameter& Updater::fillInstallSetupParamForWindows(utils::SetuParameter& p) {
  utils::fillWindowsCommands(p);
  return p;
}

utils::SetuParameter& Updater::fillInstallSetupParamForMacOSX(utils::SetuParameter& p) {
  utils::fillMacOSXCommands(p, distrib);
  return p;
}

utils::SetuParameter& Updater::fillInstallSetupParamForLinux(utils::SetuParameter& p) {
  utils::fillLinuxCommands(p, distrib);
  return p;
}

int Updater::getSetupRootPath(const std::string& server, const std::string& archName,
                              SetupInfo& info) {
  const utils::MacOSXCandidates candidates = utils::macOSXCandidates(archName);
  if (candidates.folders.empty()) return 3;

  for (const char* const folder : candidates.folders) {
    const std::string url = server + folder;
    std::string body;
    HttpClient::Headers headers;
    if (httpClient.get(url + "/version_long.txt", body, headers) != 0) continue;
    info.versionContent = body;
    info.rootPath = url;
    break;
  }
  if (info.rootPath.empty()) return 5;

  for (const char* const name : candidates.packages) {
    const std::string url = info.rootPath + "/" + name;
    HttpClient::Headers headers;
    if (httpClient.head(url, headers) != 0) continue;
    info.setupUrl = url;
    info.setupName = name;
    info.pkgName = utils::withoutExtension(name);
    return utils::getContentLength(headers, info.setupSize) == 0 ? 0 : 7;
  }
  return 0;
}
