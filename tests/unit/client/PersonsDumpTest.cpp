// PrintPersonsInfoProtobuff: a heading, then each entry's value as role and key as person.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

VellmarkPB::persons TwoPersons() {
    VellmarkPB::persons persons;
    auto* first = persons.add_person();
    first->set_key("person-a");
    first->set_value("owner");
    auto* second = persons.add_person();
    second->set_key("person-b");
    second->set_value("member");
    return persons;
}

LineList TwoPersonsLines() {
    return {kPersons(kInfo, "PrintPersonsInfoProtobuff"), kPersons(kDetail, "Role: owner"),
            kPersons(kDetail, "tarvPersonID: person-a"), kPersons(kDetail, "Role: member"),
            kPersons(kDetail, "tarvPersonID: person-b")};
}

TEST_F(DiagnosticsTest, PersonsDumpWritesHeadingThenValueAsRoleAndKeyAsPersonId) {
    peer.PrintPersonsInfoProtobuff(TwoPersons());

    EXPECT_EQ(Lines(), TwoPersonsLines());
}

TEST_F(DiagnosticsTest, PersonsWithNoPersonWritesOnlyTheHeading) {
    peer.PrintPersonsInfoProtobuff(VellmarkPB::persons());

    EXPECT_EQ(Lines(), LineList{kPersons(kInfo, "PrintPersonsInfoProtobuff")});
}

TEST_F(DiagnosticsTest, PersonsDumpWritesOnlyTheLinesTheThresholdAllows) {
    auto const persons = TwoPersons();
    ExpectOnlyLinesTheThresholdAllows([&] { peer.PrintPersonsInfoProtobuff(persons); },
                                      TwoPersonsLines());
}

}  // namespace
