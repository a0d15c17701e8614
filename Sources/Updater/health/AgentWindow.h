#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What is being done with the agent.
enum class WindowStep {
  Stop,      ///< it is about to be stopped, or is being stopped; nothing else has happened
  Install,   ///< the package manager works
  Start,     ///< it is being started
  Settle,    ///< it runs and is being looked after
  Rollback,  ///< the former version is being put back
};

/// Tells whoever finds it what a run was doing that did not come to its end: it stands on disk
/// from before the agent is stopped until the outcome is recorded.
struct AgentWindow {
  std::string run;  ///< as its record identifies it, 32 hexadecimal digits
  WindowStep step = WindowStep::Stop;
  std::string kind;                       ///< of the package: "deb", "rpm" and so on
  std::string from;                       ///< the version that was installed
  std::string to;                         ///< the one that is being installed
  std::string package;                    ///< path of its package
  std::string sha256;                     ///< of the package, in hexadecimal digits, or empty
  std::string md5;                        ///< the same; one of the two is there
  std::string since;                      ///< "2026-03-01T14:05:09Z"
  std::vector<std::string> failedBefore;  ///< checks that failed already with the former version
  std::string ailment;                    ///< why the former version is being put back
  bool mayReturn = true;                  ///< to the new version from a later one
  std::string noWayBack;                  ///< why it can't be; empty: it can
};

/// Reads what `agentWindowText` writes; nothing for any other text. Unknown members are passed
/// over.
std::optional<AgentWindow> parseAgentWindow(std::string_view text);

/// The window as a JSON object, ended by a line feed: the content of window.json.
std::string agentWindowText(const AgentWindow& window);
