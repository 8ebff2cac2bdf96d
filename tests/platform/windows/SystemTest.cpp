#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <string_view>

#include "metrics/platform/Platform.h"
#include "tests/support/Wine.h"

namespace Metrics::platform {

TEST(AddressSpaceTest, ReservedAndCommittedRegionsCountAsSuch) {
    constexpr std::size_t kSize = std::size_t{256} << 20;
    const AddressSpaceTotals before = QueryAddressSpace();
    void* region = VirtualAlloc(nullptr, kSize, MEM_RESERVE, PAGE_NOACCESS);
    ASSERT_NE(region, nullptr);
    EXPECT_GE(QueryAddressSpace().reserved, before.reserved + kSize);
    ASSERT_NE(VirtualAlloc(region, kSize, MEM_COMMIT, PAGE_READONLY), nullptr);
    EXPECT_GE(QueryAddressSpace().committed, before.committed + kSize);
    VirtualFree(region, 0, MEM_RELEASE);
}

// The exit code says which exception arrived.
LONG CALLBACK EndQuietly(EXCEPTION_POINTERS* information) {
    ExitProcess(information->ExceptionRecord->ExceptionCode == 0xE0000000 ? 77 : 1);
}

TEST(InvalidObjectDeathTest, RaisesItsStructuredException) {
    EXPECT_EXIT(
        {
            AddVectoredExceptionHandler(1, EndQuietly);
            RaiseInvalidObject("Thing: Error: invalid object: ptr=0x12");
        },
        testing::ExitedWithCode(77), "");
}

TEST(InterruptHandlerTest, CtrlCSetsTheFlag) {
    FreeConsole();  // the one it may share with others, which would get the event too
    ASSERT_TRUE(AllocConsole());
    SetConsoleCtrlHandler(nullptr, FALSE);  // a process may inherit that it ignores Ctrl+C
    const InterruptHandler handler;
    EXPECT_FALSE(InterruptHandler::Flag());
    ASSERT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
    for (int i = 0; i < 500 && !InterruptHandler::Flag(); ++i) Sleep(10);
    EXPECT_TRUE(InterruptHandler::Flag());
    // Or the process ends the system's thread, on which the handler ran, inside the heap.
    if (Testing::UnderWine()) Sleep(300);
}

TEST(OutputFileTest, IsTextThatOthersMayReadAndWriteMeanwhile) {
    const std::string path = "shared-" + std::to_string(CurrentProcessId()) + ".txt";
    OutputFile file;
    ASSERT_EQ(file.Open(path, OutputFile::Opening::MayWait), 0);
    const HANDLE other = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(file.Write("line\n"));
    char text[10];
    DWORD length = 0;
    EXPECT_TRUE(ReadFile(other, text, sizeof text, &length, nullptr));
    EXPECT_EQ(std::string_view(text, length), "line\r\n");
    EXPECT_TRUE(file.Close());
    CloseHandle(other);
    DeleteFileA(path.c_str());
}

}  // namespace Metrics::platform
