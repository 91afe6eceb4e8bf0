#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <hwy/highway.h>
#include <string>

namespace ostrel {

/// Tests of this class run once for each instruction set of this machine. Instantiate them with
/// `testing::ValuesIn(hwy::SupportedAndGeneratedTargets())`.
class EveryTarget : public testing::TestWithParam<std::int64_t>
{
public:
    static std::string name(const testing::TestParamInfo<std::int64_t> &info) { return hwy::TargetName(info.param); }

protected:
    void SetUp() override { use(GetParam()); }
    void TearDown() override { use(everything); }

private:
    static constexpr std::int64_t everything = 0;

    static void use(std::int64_t targets)
    {
        hwy::SetSupportedTargetsForTest(targets);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
};

} // namespace ostrel
