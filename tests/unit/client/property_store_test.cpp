// Properties that follow their nodes.

#include "property_store.h"

#include <gtest/gtest.h>

namespace client {

namespace {

const NodeUri office({"P", "Office"});
const NodeUri officeAddr({"P", "Office", "Addr"});
const NodeUri office2({"P", "Office2"});

class PropertyStoreTest : public testing::Test {
protected:
    PropertyStoreTest()
    {
        for (const NodeUri &node : {office, officeAddr, office2})
            store.set(node, {QString::fromLatin1(node.toUri())});
    }
    std::string typeOf(const NodeUri &node) const { return store.get(node).type.toStdString(); }

    PropertyStore store;
};

TEST_F(PropertyStoreTest, ANodeThatWasGivenNoneHasEmptyProperties)
{
    EXPECT_EQ(typeOf(NodeUri({"X"})), "");
}

TEST_F(PropertyStoreTest, DeletingANodeForgetsEverythingBeneathItAndNoNeighbour)
{
    store.remove(office);
    EXPECT_EQ(typeOf(office), "");
    EXPECT_EQ(typeOf(officeAddr), "");
    EXPECT_EQ(typeOf(office2), "./P/Office2");
}

TEST_F(PropertyStoreTest, PropertiesFollowARename)
{
    store.move(office, NodeUri({"P", "Work"}));
    EXPECT_EQ(typeOf(office), "");
    EXPECT_EQ(typeOf(officeAddr), "");
    EXPECT_EQ(typeOf(NodeUri({"P", "Work"})), "./P/Office");
    EXPECT_EQ(typeOf(NodeUri({"P", "Work", "Addr"})), "./P/Office/Addr");
    EXPECT_EQ(typeOf(office2), "./P/Office2");
}

TEST_F(PropertyStoreTest, PropertiesSurviveARenameToAnotherNodesPlaceInTheOrder)
{
    store.move(office, NodeUri({"P", "Office3"}));
    EXPECT_EQ(typeOf(NodeUri({"P", "Office3", "Addr"})), "./P/Office/Addr");
    EXPECT_EQ(typeOf(office2), "./P/Office2");
}

} // namespace

} // namespace client
