// SIGINT and SIGTERM, unless the process was started to ignore them: the first one ends the work in
// order, a second one the process at once. They stay blocked and are read from a descriptor, so
// that no code runs between two instructions of other code, and none is lost on its way.
#ifndef VT_TOOLS_STOP_SIGNALS_H_
#define VT_TOOLS_STOP_SIGNALS_H_

namespace vt::tools {

// CatchStopSignals is called once, before anything that is to end in order and before there are
// threads. It throws Failure.
void CatchStopSignals();

// StopSignal is the number of the signal that came, or 0. Once it has told one, the next has the
// effect that it had before they were caught. Only one thread may ask.
int StopSignal();

// StopDescriptor becomes readable (POLLIN) when a signal has come of which StopSignal has not told
// yet; negative when signals are not caught. Whoever waits has asked StopSignal before.
int StopDescriptor();

}  // namespace vt::tools

#endif  // VT_TOOLS_STOP_SIGNALS_H_
