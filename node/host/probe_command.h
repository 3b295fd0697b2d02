// voltaris-node probe: what of this host's power can be read, and what to do where it cannot.
#ifndef VT_NODE_HOST_PROBE_COMMAND_H_
#define VT_NODE_HOST_PROBE_COMMAND_H_

namespace vt::node {

// RunProbe is the whole command; argv[0] is the word probe. It returns the exit status: 0 when at
// least one entity can be read, else 1. It throws UsageError. Whether standard output took all that
// it prints is for the caller to see.
int RunProbe(int argc, const char* const* argv);

}  // namespace vt::node

#endif  // VT_NODE_HOST_PROBE_COMMAND_H_
