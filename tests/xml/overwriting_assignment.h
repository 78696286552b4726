// A reader made to be the target of an assignment, which overwrites its parser handle
// without freeing it. The sanitizer's leak suppressions name this function: that parser is
// the one leak these tests mean to make.
#ifndef VELCAN_TESTS_XML_OVERWRITING_ASSIGNMENT_H
#define VELCAN_TESTS_XML_OVERWRITING_ASSIGNMENT_H

#include <velcan/velcan.h>

__attribute__((noinline)) inline expatpp* newTargetOfOverwritingAssignment() {
    return new expatpp;
}

#endif
