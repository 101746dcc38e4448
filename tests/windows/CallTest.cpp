#include "tests/windows/PluginHost.h"

#include <gtest/gtest.h>

#include <array>

namespace velorine::test {
namespace {

/// Calls a C function of up to five arguments with the stack pointer `offset` bytes below a
/// multiple of 16 where it is entered.
int callAt(int offset, void* function, std::array<std::intptr_t, 5> arguments = {}) {
    int result = 0;
    const std::intptr_t* const last = arguments.data() + arguments.size();
    asm volatile("movl %%esp, %%edi\n\t"
                 "andl $-16, %%esp\n\t"
                 "subl %[offset], %%esp\n\t"
                 "pushl -4(%%ebx)\n\t"
                 "pushl -8(%%ebx)\n\t"
                 "pushl -12(%%ebx)\n\t"
                 "pushl -16(%%ebx)\n\t"
                 "pushl -20(%%ebx)\n\t"
                 "call *%%esi\n\t"
                 "movl %%edi, %%esp\n\t"
                 : "=a"(result), [offset] "+d"(offset)
                 : "S"(function), "b"(last)
                 : "edi", "ecx", "memory", "cc");
    return result;
}

template <typename Function>
void* addressOf(Function* function) {
    return reinterpret_cast<void*>(function);
}

/// A host built by other compilers keeps the stack at multiples of 4 alone.
TEST(Calls, WorkWithTheStackAtAnyMultipleOfFour) {
    for (const int offset : {0, 4, 8, 12}) {
        SCOPED_TRACE(offset);
        PluginHost host{{{"Eq", "enable", 1}}}; // the processor's vectors too
        Out_Module& out = host.out();
        std::vector<Frame> music = noise(Capture::rate / 2, 30);
        EXPECT_GE(callAt(offset, addressOf(out.Open), {Capture::rate, 2, 16, 0, 0}), 0);
        constexpr std::size_t piece = 512;
        for (std::size_t done = 0; done + piece <= music.size(); done += piece) {
            while (callAt(offset, addressOf(out.CanWrite)) < static_cast<int>(4 * piece))
                Sleep(1);
            EXPECT_EQ(callAt(offset, addressOf(out.Write),
                             {reinterpret_cast<std::intptr_t>(music.data() + done), 4 * piece}),
                      0);
        }
        callAt(offset, addressOf(out.SetVolume), {128});
        callAt(offset, addressOf(out.SetPan), {-20});
        callAt(offset, addressOf(out.Pause), {1});
        callAt(offset, addressOf(out.Pause), {0});
        callAt(offset, addressOf(out.Flush), {5000});
        EXPECT_EQ(callAt(offset, addressOf(out.GetOutputTime)), 5000);
        callAt(offset, addressOf(out.Close));
    }
}

} // namespace
} // namespace velorine::test
