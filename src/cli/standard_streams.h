// The three files that every program has open from its start.
#pragma once

/// Opens /dev/null in place of standard input, standard output and standard error, where any of
/// them is closed. Otherwise the next file that the program opens would get the number of the
/// closed one, and a message would be written into it. It is opened for reading only, so that a
/// write to it still fails. To be called before any file is opened.
void fill_closed_standard_streams();
