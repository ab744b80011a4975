// Standard output as the tool writes it: text through stdio, serialized
// replies raw to descriptor 1, and one check at the end that all of it arrived.
#pragma once

#include <cstdint>
#include <span>

// Writes `bytes` unchanged to descriptor 1 with write(2), after whatever stdio
// holds. A failure is remembered for finish_standard_output.
void write_standard_output(std::span<const std::uint8_t> bytes);

// `status`, or 1 with "<program>: write error: <reason>" on standard error when
// any output of the run was lost (a full disk, a closed pipe).
int finish_standard_output(int status);
