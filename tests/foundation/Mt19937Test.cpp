#include "foundation/Mt19937.h"

#include "foundation/EntropySource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace velorine::test {

namespace {

TEST(Mt19937, KnownAnswersOfTheSystemsSeed) {
    Mt19937 generator{Mt19937::firstSeed};
    for (const std::uint32_t expected :
         {0x483bec5bu, 0x6a245d8du, 0xc94298ceu, 0x542dd327u, 0x0297e946u, 0x7fe8b4c5u})
        EXPECT_EQ(generator.next(), expected);
}

TEST(Mt19937, KnownAnswersOfTheReferenceSeed) {
    Mt19937 generator{5489};
    EXPECT_EQ(generator.next(), 3'499'211'612u);
    for (int i = 2; i < 10'000; ++i)
        generator.next();
    EXPECT_EQ(generator.next(), 4'123'659'995u);
}

TEST(Mt19937, AgreesWithTheStandardLibrary) {
    for (const std::uint32_t seed : {0u, 1u, 0xffffffffu, 0x17846ffeu}) {
        Mt19937 ours{seed};
        std::mt19937 theirs{seed};
        for (int i = 0; i < 3000; ++i)
            ASSERT_EQ(ours.next(), theirs()) << "seed " << seed << ", output " << i;
    }
}

TEST(Mt19937, SeedStartsOver) {
    Mt19937 generator{1};
    generator.next();
    generator.seed(5489);
    EXPECT_EQ(generator.next(), 3'499'211'612u);
}

TEST(Mt19937, TriangularIsTheFirstDrawLessTheSecond) {
    Mt19937 generator{Mt19937::firstSeed};
    EXPECT_NEAR(generator.triangular(), -0.1324530360, 5e-11);
}

TEST(Mt19937, UniformIsBelowOne) {
    Mt19937 generator{7};
    double lowest = 1.0;
    double highest = 0.0;
    for (int i = 0; i < 100'000; ++i) {
        const double u = generator.uniform();
        lowest = std::min(lowest, u);
        highest = std::max(highest, u);
    }
    EXPECT_GE(lowest, 0.0);
    EXPECT_LT(highest, 1.0);
    EXPECT_LT(lowest, 0.001);
    EXPECT_GT(highest, 0.999);
}

TEST(Mt19937, PendingWordsAreTheOnesDrawnNext) {
    Mt19937 one{42};
    Mt19937 other{42};
    for (int done = 0, step = 1; done < 5000; ++step) {
        int count = 0;
        const std::uint32_t* const words = one.pending(&count);
        ASSERT_GE(count, 1);
        const int taken = std::min(count, 1 + step % 97);
        for (int i = 0; i < taken; ++i)
            ASSERT_EQ(Mt19937::temper(words[i]), other.next()) << done + i;
        one.skip(taken);
        done += taken;
    }
    EXPECT_EQ(one.next(), other.next());
}

class FixedEntropy final : public EntropySource {
public:
    FixedEntropy() { install(this); }
    ~FixedEntropy() override { install(nullptr); }
    std::uint32_t seed() override { return 5489; }
};

TEST(Mt19937, TheSeedThatCountsIsTheEntropySources) {
    const FixedEntropy entropy;
    EXPECT_EQ(entropySeed(), 5489u);
    Mt19937 generator;
    EXPECT_EQ(generator.next(), 3'499'211'612u);
}

} // namespace

} // namespace velorine::test
