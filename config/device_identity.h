#pragma once

// Turns the enrollment of this machine into an upload key and an agent by asking the service's
// agent-configuration endpoint. Keeps nothing between calls and logs nothing.

#include <optional>
#include <string>

namespace pelmar::DeviceIdentity {

struct Resolved {
  std::string apiUrl;     // the answer's, else the identity file's; may be empty
  std::string uploadKey;  // never empty
  std::string agentSlug;  // empty when the answer has none
  std::string agentType;  // empty when the answer has none

  bool operator==(const Resolved&) const = default;
};

// A look-up with its reason: exactly one of the two is set. The reason holds no token.
struct Attempt {
  std::optional<Resolved> resolved{};
  std::string reason{};
};

// As resolve, and why there is no answer.
Attempt tryResolve(const std::string& process);

// Why the identity file leaves nobody to ask, or none when it is complete. Asks nobody.
std::optional<std::string> identityProblem();

// What the service answers for `process`, the feature of the desktop application whose sessions are
// reported; none without an identity file or a valid answer with status 200. Blocks for at most
// 12 s.
std::optional<Resolved> resolve(const std::string& process);

}  // namespace pelmar::DeviceIdentity
