// SPDX-License-Identifier: MIT
// The target that compiles headers for the test programs has this source alone.
