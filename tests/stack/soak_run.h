// SoakRun: what every soak does: measures its process before, meanwhile and after, and judges the figures.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "soak_samples.h"

#include <QString>

#include <functional>
#include <string>

namespace Soak {
/// Runs the event loop of this thread.
void pass(int milliseconds);
/// Calls timepop() in the stack's thread and waits for its end.
void tick();
/// Prints @p what with "yes" or "NO".
/// @return @p good
bool say(bool good, const std::string& what);
} // namespace Soak

class SoakRun
{
public:
    /// Measures the process once everything is open that stays open for good, and enables the stack on the loopback.
    SoakRun();

    /// Runs the event loop for @p minutes. Prints a line of figures every ten seconds, with what @p figures returns
    /// under
    /// @p heading.
    void pass(double minutes, const char* heading, const std::function<std::string()>& figures);
    /// Disables the stack, measures the process again and prints whether memory is flat and descriptors and threads are
    /// as many as before. To be called when everything is destroyed that came after the constructor.
    bool isAsBefore();
    /// The number of threads during pass().
    int fewestThreads() const { return m_samples.fewestThreads(); }
    int mostThreads() const { return m_samples.mostThreads(); }

private:
    ProcessFigures m_before;
    SoakSamples m_samples;
};

/// The main function of a soak, whose arguments are MINUTES, MEDIASERVER-PROGRAM and, if @p option is given, that one
/// or nothing.
int soakMain(int argc, char** argv, const char* option,
             const std::function<bool(double minutes, const QString& program, bool isOptionGiven)>& soak);
