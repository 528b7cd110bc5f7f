// Nothing but a source file for the target that compiles precompiled.h.
// SPDX-License-Identifier: Apache-2.0
