// Who frees the expat parser. This program defines XML_ParserFree itself, so the library's
// calls come here first: each call is counted, and a handle is freed for real only once.
// These tests copy readers on purpose, to show what a copy does.
#define VELCAN_ALLOW_EXPATPP_COPY

#include <dlfcn.h>

#include <map>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "overwriting_assignment.h"

namespace {
std::map<void*, int> freeCalls;
} // namespace

extern "C" void XMLCALL XML_ParserFree(XML_Parser parser) {
    if (freeCalls[parser]++ == 0) {
        using Free = void(XMLCALL*)(XML_Parser);
        reinterpret_cast<Free>(dlsym(RTLD_NEXT, "XML_ParserFree"))(parser);
    }
}

namespace {

void* handleOf(const expatpp& reader) {
    return static_cast<void*>(reader);
}

class ParserOwnership : public ::testing::Test {
  protected:
    void SetUp() override { freeCalls.clear(); }
};

TEST_F(ParserOwnership, DestructorFreesTheParserOnce) {
    void* handle = nullptr;
    {
        expatpp reader;
        handle = handleOf(reader);
    }
    EXPECT_EQ(freeCalls[handle], 1);
}

TEST_F(ParserOwnership, ObjectWithoutParserFreesNothing) {
    { expatpp reader(false); }
    EXPECT_TRUE(freeCalls.empty());
}

TEST_F(ParserOwnership, CopyAndOriginalEachFreeTheSharedParser) {
    void* handle = nullptr;
    {
        expatpp original;
        handle = handleOf(original);
        expatpp copy(original);
        EXPECT_EQ(handleOf(copy), handle);
    }
    EXPECT_EQ(freeCalls[handle], 2);
}

TEST_F(ParserOwnership, AssignmentOverwritesTheTargetsParserWithoutFreeingIt) {
    void* sourceHandle = nullptr;
    void* targetHandle = nullptr;
    {
        expatpp source;
        expatpp* target = newTargetOfOverwritingAssignment();
        sourceHandle = handleOf(source);
        targetHandle = handleOf(*target);
        *target = source;
        EXPECT_EQ(freeCalls.count(targetHandle), 0u);
        EXPECT_EQ(handleOf(*target), sourceHandle);
        delete target;
    }
    EXPECT_EQ(freeCalls[sourceHandle], 2);
    EXPECT_EQ(freeCalls.count(targetHandle), 0u);
}

} // namespace
