#include "Updater/health/AgentWindow.h"

#include <exception>
#include <nlohmann/json.hpp>

NLOHMANN_JSON_SERIALIZE_ENUM(WindowStep, {{WindowStep::Stop, "stop"},
                                          {WindowStep::Install, "install"},
                                          {WindowStep::Start, "start"},
                                          {WindowStep::Settle, "settle"},
                                          {WindowStep::Rollback, "rollback"}})

namespace {

using Json = nlohmann::ordered_json;
constexpr int kSchema = 1;

}  // namespace

std::optional<AgentWindow> parseAgentWindow(std::string_view text) try {
  const Json json = Json::parse(text);
  // What the library does not know it takes for the first one.
  if (json.at("schema") != kSchema || Json(json.at("step").get<WindowStep>()) != json.at("step")) {
    return std::nullopt;
  }
  return AgentWindow{.run = json.at("run"),
                     .step = json.at("step"),
                     .kind = json.at("kind"),
                     .from = json.at("from"),
                     .to = json.at("to"),
                     .package = json.at("package"),
                     .sha256 = json.at("sha256"),
                     .md5 = json.at("md5"),
                     .since = json.at("since"),
                     .failedBefore = json.at("failed_before"),
                     .ailment = json.at("ailment"),
                     .mayReturn = json.at("may_return"),
                     .noWayBack = json.at("no_way_back")};
} catch (const std::exception&) {
  return std::nullopt;
}

std::string agentWindowText(const AgentWindow& w) {
  const Json json = {{"schema", kSchema},
                     {"run", w.run},
                     {"step", w.step},
                     {"kind", w.kind},
                     {"from", w.from},
                     {"to", w.to},
                     {"package", w.package},
                     {"sha256", w.sha256},
                     {"md5", w.md5},
                     {"since", w.since},
                     {"failed_before", w.failedBefore},
                     {"ailment", w.ailment},
                     {"may_return", w.mayReturn},
                     {"no_way_back", w.noWayBack}};
  return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}
