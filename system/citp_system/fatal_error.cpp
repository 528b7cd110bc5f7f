// _FatalError: says what has failed and ends the process.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/fatal_error.h>

#include <citp_system/os_log.h>

#include <cstdio>
#include <cstdlib>

void _FatalError(const char* text, int line, const char* file)
{
    // stderr first: a sink may hang or be gone by now.
    std::fprintf(stderr, "Fatal error: %s, line %d, %s\n", text, line, file);
    std::fflush(stderr);
    // Never destroyed: a fatal error may come while the process's static objects are being destroyed.
    static auto* const context = new Os::Log::Context("System");
    text_base message;
    message << "Fatal error: " << text << ", line " << line << ", " << file;
    context->Write(Os::Log::Critical, message, __PRETTY_FUNCTION__, file, line, Os::Thread::GetCallStack());
    std::abort();
}
