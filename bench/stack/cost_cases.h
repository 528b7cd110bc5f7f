// The instructions of the stack for a message, counted by callgrind.
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Makes callgrind dump the cost of each case. @return the exit status of the program
int countCosts();
