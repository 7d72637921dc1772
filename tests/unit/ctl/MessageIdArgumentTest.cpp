// How vellmarkctl reads a message identifier given on its command line.
#include <gtest/gtest.h>

#include "VellmarkMessageId.pb.h"
#include "tools/Command.h"

namespace Vellmark::Ctl {
namespace {

TEST(MessageIdArgument, ANumberAFullNameAndAShortNameInAnyCaseAreTheSameIdentifier) {
    unsigned int const create = VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE;
    EXPECT_EQ(ParseMessageId("15"), create);
    EXPECT_EQ(ParseMessageId("VELLMARK_MESSAGE_GVA_CREATE"), create);
    EXPECT_EQ(ParseMessageId("GVA_CREATE"), create);
    EXPECT_EQ(ParseMessageId("gva_create"), create);
    EXPECT_EQ(ParseMessageId("get_sources"),
              static_cast<unsigned int>(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES));
}

TEST(MessageIdArgument, WhatNamesNoIdentifierIsBadInput) {
    for (char const* text : {"", "GVA", "99", "15x", "-1", "MESSAGE_GVA_CREATE"}) {
        EXPECT_THROW(ParseMessageId(text), BadInput) << text;
    }
}

}  // namespace
}  // namespace Vellmark::Ctl
