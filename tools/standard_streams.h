// SPDX-License-Identifier: MIT
// Who writes where: results and reports may share the standard output only one at a time.
#pragma once

namespace zor_tools {

// Closed standard streams are opened on nothing, so that no file that is opened later becomes one of them;
// writing to such a stream fails.
void protect_standard_streams();

// Reports are dropped from now on; results still reach the standard output.
void silence_reports();

// A descriptor of the standard output, for a result; reports go to the standard error from now on. Once only.
int take_standard_output();

}  // namespace zor_tools
