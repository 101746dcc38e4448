#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "kestrix/KestrixStage.h"
#include "tests/kestrix/KestrixRig.h"

#include <gtest/gtest.h>

#include <bit>

namespace velorine::test {
namespace {

double stored(MemoryStore& store, const char* name) {
    double value = -99.0;
    RegistryNode node{store, RegistryNode::read};
    node.exchangeDouble("Eq", name, value);
    return value;
}

TEST(KestrixParameters, TheTwoLowestNodesHaveTheLastKeys) {
    MemoryStore store;
    KestrixParameters parameters;
    for (int n = 0; n < eqNodes; ++n)
        parameters.eq[n] = n;
    RegistryNode node{store, RegistryNode::write};
    parameters.exchange(node);
    EXPECT_EQ(stored(store, "eq22"), 0.0);
    EXPECT_EQ(stored(store, "eq21"), 1.0);
    EXPECT_EQ(stored(store, "eq0"), 2.0);
    EXPECT_EQ(stored(store, "eq20"), 22.0);
}

TEST(KestrixParameters, SurviveTheStore) {
    MemoryStore store;
    KestrixParameters written = factorySettings();
    written.del[3] = -0.0;
    written.trans[5] = {0.25, 0.5, 0.75};
    written.softclip = false;
    RegistryNode out{store, RegistryNode::write};
    written.exchange(out);
    KestrixParameters read;
    RegistryNode in{store, RegistryNode::read};
    read.exchange(in);
    EXPECT_EQ(read.trans[5].amount, 0.25);
    EXPECT_EQ(read.trans[5].sensitivity, 0.5);
    EXPECT_EQ(read.trans[5].length, 0.75);
    EXPECT_FALSE(read.softclip);
    EXPECT_TRUE(std::signbit(read.del[3]));
    EXPECT_EQ(read.compr[4], static_cast<double>(-0.1F));
    EXPECT_EQ(read.band[3].high, 900.0);
}

TEST(KestrixParameters, EdgesThatCrossLoadAsTheBuiltInOnes) {
    MemoryStore store;
    KestrixParameters parameters = factorySettings();
    parameters.band[3].low = parameters.band[2].high - 1.0;
    RegistryNode out{store, RegistryNode::write};
    parameters.exchange(out);
    EXPECT_EQ(parameters.band[4].low, 1500.0); // saving checks nothing
    KestrixParameters read;
    RegistryNode in{store, RegistryNode::read};
    read.exchange(in);
    const double expected[][2] = {{0, 60},      {75, 130},    {200, 500},   {800, 1400},
                                  {2000, 3000}, {5000, 7500}, {9500, 24000}};
    for (int b = 0; b < kestrixBands; ++b) {
        EXPECT_EQ(read.band[b].low, expected[b][0]);
        EXPECT_EQ(read.band[b].high, expected[b][1]);
    }
}

TEST(KestrixParameters, EdgesThatTouchAreFine) {
    MemoryStore store;
    KestrixParameters parameters;
    parameters.band[3].low = parameters.band[2].high = 600.0;
    RegistryNode out{store, RegistryNode::write};
    parameters.exchange(out);
    KestrixParameters read;
    RegistryNode in{store, RegistryNode::read};
    read.exchange(in);
    EXPECT_EQ(read.band[3].low, 600.0);
}

TEST(KestrixParameters, ALoadAsksForARebuild) {
    MemoryStore store;
    applyPreset(store);
    KestrixStage stage;
    stage.rebuildPending = false;
    RegistryNode in{store, RegistryNode::read};
    stage.exchangeSettings(in);
    EXPECT_TRUE(stage.rebuildPending);
    EXPECT_EQ(stage.parameters.headroom, static_cast<double>(3.2F));
}

TEST(KestrixParameters, BuiltInValues) {
    const KestrixParameters parameters;
    EXPECT_EQ(parameters.headroom, 6.0);
    EXPECT_EQ(parameters.magnitude, 0.5);
    EXPECT_EQ(parameters.lim[0], 6.0);
    EXPECT_EQ(parameters.lim[globalOffset], 0.0);
    EXPECT_EQ(parameters.comprlim[6], -24.0);
    EXPECT_EQ(parameters.comprlim[globalOffset], 0.0);
    EXPECT_EQ(parameters.trans[0].amount, 0.12);
    EXPECT_EQ(parameters.trans[0].sensitivity, 0.5);
    EXPECT_TRUE(parameters.enable && parameters.softclip && parameters.enabletrans);
    EXPECT_FALSE(parameters.tiltEnabled);
}

} // namespace
} // namespace velorine::test
