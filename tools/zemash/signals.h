// The signals that wake a waiting console.
#pragma once

namespace zemash {

// SIGINT, SIGTERM and SIGHUP stop the dispatch that waits; `attended`, SIGINT abandons what goes on, else it
// ends the console as the others do. SIGTSTP is ignored: a stopped console would hold up every process that
// prints on its terminal.
void catchSignals(bool attended);

// SIGINT came since the last call and abandons what goes on.
bool takeInterrupt();

// The signal that came to end the console, else 0.
int endSignal();

// Ends the process by the signal, as its parent expects it.
void dieBy(int signal);

} // namespace zemash
