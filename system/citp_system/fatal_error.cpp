// _FatalError: reports the failure and aborts the process.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/fatal_error.h>

#include <citp_system/os_log.h>

#include <cstdio>
#include <cstdlib>

void _FatalError(const char* text, int line, const char* file)
{
    // stderr first: the log sink may block or may no longer exist.
    std::fprintf(stderr, "Fatal error: %s, line %d, %s\n", text, line, file);
    std::fflush(stderr);
    // Never destroyed: a fatal error can occur while the static objects of the process are destroyed.
    static auto* const context = new Os::Log::Context("System");
    text_base message;
    message << "Fatal error: " << text << ", line " << line << ", " << file;
    context->Write(Os::Log::Critical, message, __PRETTY_FUNCTION__, file, line, Os::Thread::GetCallStack());
    std::abort();
}
