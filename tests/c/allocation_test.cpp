// Running out of memory inside a C call: a status and a message, never an exception that
// crosses into the caller's C frames.
#include <cstdlib>

#include <gtest/gtest.h>

#include <velcan/c.h>

#include "support/replaced_new.h"

namespace {
bool refuse = false;
}

void* testAllocate(std::size_t size) {
    return refuse ? nullptr : std::malloc(size);
}

namespace {

TEST(CAllocation, CommandThatCannotBeMadeSaysNoMemory) {
    velcan_command* command = nullptr;
    refuse = true;
    const velcan_status status = velcan_command_new(&command);
    refuse = false;
    EXPECT_EQ(status, VELCAN_ERROR_NO_MEMORY);
    EXPECT_EQ(command, nullptr);
    EXPECT_STREQ(velcan_last_error(), "out of memory");
}

TEST(CAllocation, NotesThatCannotBeWrittenSayNoMemory) {
    static const char history[] = "<h><Version number=\"1\"/></h>";
    velcan_history* read = nullptr;
    ASSERT_EQ(velcan_history_read_buffer(history, sizeof history - 1, &read), VELCAN_OK);
    char* text = nullptr;
    size_t size = 0;
    refuse = true;
    const velcan_status status = velcan_history_notes(read, VELCAN_NOTES_HTML, &text, &size);
    refuse = false;
    EXPECT_EQ(status, VELCAN_ERROR_NO_MEMORY);
    EXPECT_EQ(text, nullptr);
    velcan_history_free(read);
}

TEST(CAllocation, CancelThatCannotBeMadeSaysNoMemory) {
    velcan_cancel* cancel = nullptr;
    refuse = true;
    const velcan_status status = velcan_cancel_new(&cancel);
    refuse = false;
    EXPECT_EQ(status, VELCAN_ERROR_NO_MEMORY);
    EXPECT_EQ(cancel, nullptr);
}

} // namespace
