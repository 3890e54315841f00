#pragma once

// Which system calls of the agent fail, and the agent's talk with the program that tests it. The
// library is preloaded; what the variables below do not ask for is passed on unchanged.
//
//   PELMAR_FAULTS    the first plan, see FaultPlan
//   PELMAR_LOCKSTEP  "STATUS,COMMANDS", two descriptors: at the pause between two passes the agent
//                    writes "pass CALLS" and waits for the line "go"; "faults PLAN" before it
//                    replaces the plan, "counts" is answered "counts CALL=N ...". Every fault is
//                    told by a line "fault CALL NUMBER WHERE".
//                    Other pauses, those between two attempts, take no time.
//   PELMAR_RECORD    a descriptor that takes what the agent did to its files, a line an operation
//   PELMAR_KEPT      a folder that takes a second name of every file that is renamed
//
// The agent has one thread; nothing here is locked.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pelmar::test {

// A call is known by a name: the function's, but `open_read` and `open_write` for the two kinds of
// open. Calls of one name are counted from 1, those only that concern the root folder or a socket.
class FaultPlan {
 public:
  // "CALL:ERRNO:N" fails the Nth call, "CALL:ERRNO:N+" it and all that follow; several with commas.
  // ERRNO is the number; 0 lets the call do half of what it is asked for. Counting begins anew.
  void replace(std::string_view text);

  // The fault of this call, which is counted: its errno, or none.
  std::optional<int> next(std::string_view call);

  // How often each call was counted, as " CALL=N CALL=N".
  std::string counts() const;

  // The number of the call that `next` was last asked about.
  int lastNumber() const { return lastNumber_; }

 private:
  struct Fault {
    std::string call{};
    int error = 0;
    int first = 0;
    bool isLasting = false;
  };
  struct Count {
    std::string call{};
    int calls = 0;
  };

  std::vector<Fault> faults_{};
  std::vector<Count> counts_{};
  int lastNumber_ = 0;
};

class Lockstep {
 public:
  Lockstep();

  bool isOn() const { return status_ >= 0; }

  // Counts `call` and says how it fails, if it does; `where` is told to the testing program. Ends
  // the process when a pass makes more calls than any honest one.
  std::optional<int> faultOf(std::string_view call, const std::string& where);

  // The pause between two passes: blocks until the testing program lets the agent go on.
  void pass();

 private:
  void tell(std::string line) const;
  std::string command() const;

  FaultPlan plan_{};
  int status_ = -1;
  int commands_ = -1;
  int calls_ = 0;  // of this pass
};

// Outlives every other object of the process.
Lockstep& lockstep();

}  // namespace pelmar::test
