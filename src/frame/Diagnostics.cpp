// The message box and trace stand-ins, with replaceable handlers.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "dorvik/Platform.h"

namespace dorvik::classic {
namespace {
int DefaultMessage(const char* text, UINT, UINT) {
    // One line: the CR LF of the text become a blank.
    std::string line;
    for (const char* p = text ? text : ""; *p; ++p) {
        if (*p == '\r') continue;
        line += (*p == '\n') ? ' ' : *p;
    }
    std::fprintf(stderr, "%s\n", line.c_str());
    return 1;
}

void DefaultTrace(const char* text) {
#ifndef NDEBUG
    std::fputs(text, stderr);
#else
    (void)text;
#endif
}

std::atomic<AfxMessageHandler> g_message{&DefaultMessage};
std::atomic<AfxTraceSink> g_trace{&DefaultTrace};
}  // namespace

int AfxMessageBox(const char* text, UINT type, UINT help) {
    return g_message.load()(text, type, help);
}

AfxMessageHandler AfxSetMessageHandler(AfxMessageHandler handler) {
    return g_message.exchange(handler ? handler : &DefaultMessage);
}

void AfxTrace(const char* format, ...) {
    char small[512];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = std::vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (n < 0) {
        va_end(again);
        return;
    }
    if (static_cast<std::size_t>(n) < sizeof small) {
        va_end(again);
        g_trace.load()(small);
        return;
    }
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(big.data(), big.size(), format, again);
    va_end(again);
    big.resize(static_cast<std::size_t>(n));
    g_trace.load()(big.c_str());
}

AfxTraceSink AfxSetTraceSink(AfxTraceSink sink) {
    return g_trace.exchange(sink ? sink : &DefaultTrace);
}

}  // namespace dorvik::classic
