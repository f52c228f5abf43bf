// Signals that end long work in good order.
#pragma once

/// From now on, SIGINT, SIGTERM and SIGHUP do not end the program; `is_interrupted` tells that one
/// came. A signal that is ignored, for example under nohup, stays so.
void note_interrupts();

/// Whether a signal came since `note_interrupts`.
[[nodiscard]] bool is_interrupted();

/// Ends the program by the signal that came, if one did.
void end_if_interrupted();
