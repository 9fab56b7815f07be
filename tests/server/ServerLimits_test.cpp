#include <gtest/gtest.h>

#include "tools/rig_test_server/ServerLimits.h"

using Admission = ConnectionLimits::Admission;
using Verdict = PongAdmission::Verdict;

TEST(ConnectionLimits, PerSourceShareThenTotalAndPlacesComeBack)
{
    ConnectionLimits limits(3, 2);
    EXPECT_EQ(limits.TryOpen(1), Admission::Admitted);
    EXPECT_EQ(limits.TryOpen(1), Admission::Admitted);
    EXPECT_EQ(limits.TryOpen(1), Admission::SourceFull);
    EXPECT_EQ(limits.TryOpen(2), Admission::Admitted);
    EXPECT_EQ(limits.TryOpen(3), Admission::Full);
    limits.Close(1);
    EXPECT_EQ(limits.TryOpen(3), Admission::Admitted);
    limits.Close(7); // never admitted: changes nothing
    EXPECT_EQ(limits.TryOpen(4), Admission::Full);
}

TEST(PongAdmission, TheSourceLimitComesFirstThenTheGlobalBudget)
{
    PongAdmission admission(1.0, 2.0, 3.0);
    const std::uint32_t sources[] = {1, 1, 1, 2, 3, 4};
    Verdict verdicts[6];
    admission.Decide(sources, verdicts, 6, {});
    // Source 1's third ping is its own limit's, and spends no budget.
    EXPECT_EQ(std::vector<Verdict>(verdicts, verdicts + 6),
              (std::vector<Verdict>{Verdict::Allowed, Verdict::Allowed, Verdict::SourceLimited,
                                    Verdict::Allowed, Verdict::BudgetSpent, Verdict::BudgetSpent}));
}
