#include "tests/fuzz/agent_home.h"

#include <filesystem>

namespace pelmar::fuzz {

AgentHome::AgentHome() : transcript_(root_.addTranscript("t", "")) {
  // The activity log would only grow.
  std::filesystem::create_directories(std::filesystem::path(root_.activityLog()).parent_path());
  std::filesystem::create_symlink("/dev/null", root_.activityLog());
}

void AgentHome::writeTranscript(std::string_view content) {
  test::writeFile(transcript_, std::string(content));
}

void AgentHome::appendToTranscript(std::string_view content) {
  test::appendToFile(transcript_, std::string(content));
}

void AgentHome::pass(CursorState& state, const std::string& agentSlug) const {
  Journal journal(root_.cursor());
  pollOnce(state, CursorFile(root_.cursor()), journal, client(), agentSlug, /*verbose=*/false);
}

ObserveClient AgentHome::client() {
  ObserveClient client(kServiceUrl, "key");
  client.backoffBase = 0;
  return client;
}

std::int64_t AgentHome::offsetIn(const CursorState& state) const {
  return state.at(transcript_).values().at("offset").get<std::int64_t>();
}

AgentHome& agentHome() {
  static AgentHome home;
  return home;
}

}  // namespace pelmar::fuzz
