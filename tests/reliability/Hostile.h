#pragma once

/// Gives the library malformed directories, data sets that lie about their lengths, and names and links that lead
/// elsewhere; prints a line for each failure, and one for all. The number of failures.
int RunHostile(bool full, unsigned seed);
