// UUID parsing and printing, and Version comparison, each beside a plain baseline in the same run.
#include "Scripting/Version.h"
#include "UUID.h"

#include <benchmark/benchmark.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

namespace
{
const std::vector<std::string>& dashedTexts()
{
    static const std::vector<std::string> texts = {
        "B3E0AE89-7256-49AC-98C1-2E599AA4C081", "77ec12b4-1b2b-4c98-8d34-d1cd63f849d5",
        "f24732b6-0f04-4b16-81cb-88d6b99a11ea", "00000000-0000-0000-0000-000000000001",
        "ffffffff-ffff-ffff-ffff-ffffffffffff", "0123abcd-4567-89ef-ABCD-0123456789ab",
        "deadbeef-cafe-f00d-babe-0123456789ab", "10000000-2000-3000-4000-500000000006",
    };
    return texts;
}

std::vector<std::string> compactTexts()
{
    std::vector<std::string> texts;
    for (std::string text : dashedTexts())
    {
        std::erase(text, '-');
        texts.push_back(std::move(text));
    }
    return texts;
}

void runFromString(benchmark::State& state, const std::vector<std::string>& texts)
{
    size_t i = 0;
    for (auto _ : state)
    {
        quv::UUID uuid = quv::UUID::fromString(texts[i++ % texts.size()]);
        benchmark::DoNotOptimize(uuid);
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_UuidFromString_Dashed(benchmark::State& state)
{
    runFromString(state, dashedTexts());
}
BENCHMARK(BM_UuidFromString_Dashed);

void BM_UuidFromString_Compact(benchmark::State& state)
{
    runFromString(state, compactTexts());
}
BENCHMARK(BM_UuidFromString_Compact);

void BM_UuidFromString_Invalid(benchmark::State& state)
{
    // Fails late: only the last character is wrong.
    runFromString(state, {"B3E0AE89-7256-49AC-98C1-2E599AA4C08g"});
}
BENCHMARK(BM_UuidFromString_Invalid);

// Baseline: sscanf reads the same fields, without checking lengths or dash positions as strictly.
void BM_Baseline_SscanfUuid(benchmark::State& state)
{
    const auto& texts = dashedTexts();
    size_t i = 0;
    for (auto _ : state)
    {
        unsigned a = 0, b = 0, c = 0, d = 0, e = 0, f = 0;
        const int read =
            std::sscanf(texts[i++ % texts.size()].c_str(), "%8x-%4x-%4x-%4x-%4x%8x", &a, &b, &c, &d, &e, &f);
        const uint64_t high = (uint64_t{a} << 32) | (uint64_t{b} << 16) | c;
        const uint64_t low = (uint64_t{d} << 48) | (uint64_t{e} << 32) | f;
        benchmark::DoNotOptimize(read);
        benchmark::DoNotOptimize(high);
        benchmark::DoNotOptimize(low);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_SscanfUuid);

std::vector<quv::UUID> sampleUuids()
{
    std::vector<quv::UUID> uuids;
    for (const std::string& text : dashedTexts())
    {
        uuids.push_back(quv::UUID::fromString(text));
    }
    return uuids;
}

void BM_UuidAsString(benchmark::State& state)
{
    const std::vector<quv::UUID> uuids = sampleUuids();
    size_t i = 0;
    for (auto _ : state)
    {
        std::string text = uuids[i++ % uuids.size()].asString();
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_UuidAsString);

// Baseline: the same layout through snprintf into a stack buffer, then into a std::string.
void BM_Baseline_SnprintfUuid(benchmark::State& state)
{
    const std::vector<quv::UUID> uuids = sampleUuids();
    size_t i = 0;
    for (auto _ : state)
    {
        const quv::UUID& uuid = uuids[i++ % uuids.size()];
        const uint64_t high = uuid.getHigh();
        const uint64_t low = uuid.getLow();
        char buffer[37];
        std::snprintf(buffer, sizeof buffer,
                      "%08" PRIx32 "-%04" PRIx64 "-%04" PRIx64 "-%04" PRIx64 "-%08" PRIx32 "%04" PRIx64,
                      static_cast<uint32_t>(high >> 32), (high >> 16) & 0xffff, high & 0xffff, low >> 48,
                      static_cast<uint32_t>(low >> 16), low & 0xffff);
        std::string text(buffer, 36);
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_SnprintfUuid);

// Pairs that reach every step of the order: numbers, stable against prerelease, and identifier lists.
const std::vector<std::pair<Scripting::Version, Scripting::Version>>& versionPairs()
{
    using Scripting::Version;
    static const std::vector<std::pair<Version, Version>> pairs = {
        {Version(1, 0, 0), Version(2, 0, 0)},
        {Version(1, 2, 3), Version(1, 2, 4)},
        {Version(1, 0, 0, "alpha"), Version(1, 0, 0)},
        {Version(1, 0, 0, "alpha"), Version(1, 0, 0, "alpha.1")},
        {Version(1, 0, 0, "alpha.1"), Version(1, 0, 0, "alpha.beta")},
        {Version(1, 0, 0, "beta.2"), Version(1, 0, 0, "beta.11")},
        {Version(1, 0, 0, "beta.11"), Version(1, 0, 0, "rc.1")},
        {Version(1, 0, 0, "rc.1"), Version(1, 0, 0, "rc.1")},
    };
    return pairs;
}

void BM_VersionLess(benchmark::State& state)
{
    const auto& pairs = versionPairs();
    size_t i = 0;
    for (auto _ : state)
    {
        const auto& [a, b] = pairs[i++ % pairs.size()];
        bool less = a < b;
        benchmark::DoNotOptimize(less);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VersionLess);

// Baseline: a plain tuple order over the numbers and the raw tag text. It ignores the prerelease rules
// (a stable version, with its empty tag, sorts first), so it is a lower bound, not an equivalent.
void BM_Baseline_TupleLess(benchmark::State& state)
{
    const auto& pairs = versionPairs();
    size_t i = 0;
    for (auto _ : state)
    {
        const auto& [a, b] = pairs[i++ % pairs.size()];
        bool less =
            std::tie(a.Major, a.Minor, a.Patch, a.Prerelease) < std::tie(b.Major, b.Minor, b.Patch, b.Prerelease);
        benchmark::DoNotOptimize(less);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_TupleLess);

void BM_VersionSatisfies(benchmark::State& state)
{
    const bool strict = state.range(0) != 0;
    const auto& pairs = versionPairs();
    size_t i = 0;
    for (auto _ : state)
    {
        // The greater version of each pair as the candidate, so that most calls get past the early exits.
        const auto& [requested, candidate] = pairs[i++ % pairs.size()];
        bool satisfied = candidate.satisfies(requested, strict);
        benchmark::DoNotOptimize(satisfied);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VersionSatisfies)->ArgName("strict")->Arg(0)->Arg(1);

// Tags of 100,000 identifiers that agree up to the last one, so that both are read to their end.
struct LongTags
{
    static constexpr size_t IDENTIFIERS = 100000;

    LongTags()
    {
        std::string common;
        for (size_t i = 0; i + 1 < IDENTIFIERS; ++i)
        {
            common += (i % 2 == 0) ? "1." : "x.";
        }
        lesser = Scripting::Version(1, 0, 0, common + "9");
        greater = Scripting::Version(1, 0, 0, common + "10");
    }

    Scripting::Version lesser;
    Scripting::Version greater;
};

const LongTags& longTags()
{
    static const LongTags tags;
    return tags;
}

void BM_VersionLess_LongTag(benchmark::State& state)
{
    const LongTags& tags = longTags();
    for (auto _ : state)
    {
        bool less = tags.lesser < tags.greater;
        benchmark::DoNotOptimize(less);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * tags.lesser.Prerelease.size()));
}
BENCHMARK(BM_VersionLess_LongTag)->Unit(benchmark::kMicrosecond);

void BM_VersionSatisfies_LongTag(benchmark::State& state)
{
    // Equal tags: the prerelease rule compares the tags, then the whole versions.
    const LongTags& tags = longTags();
    const Scripting::Version copy = tags.lesser;
    for (auto _ : state)
    {
        bool satisfied = tags.lesser.satisfies(copy, true);
        benchmark::DoNotOptimize(satisfied);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * tags.lesser.Prerelease.size()));
}
BENCHMARK(BM_VersionSatisfies_LongTag)->Unit(benchmark::kMicrosecond);

// Baseline: one plain byte-wise compare of the same two tags, which knows nothing of identifiers.
void BM_Baseline_StringLess_LongTag(benchmark::State& state)
{
    const LongTags& tags = longTags();
    for (auto _ : state)
    {
        bool less = tags.lesser.Prerelease < tags.greater.Prerelease;
        benchmark::DoNotOptimize(less);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * tags.lesser.Prerelease.size()));
}
BENCHMARK(BM_Baseline_StringLess_LongTag)->Unit(benchmark::kMicrosecond);
} // namespace
