#include "Scripting/ScriptEngine/DependencyResolver.h"

#include "Diagnostics/Assert.h"
#include "Scripting/internal/Hash.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <queue>
#include <tuple>
#include <unordered_set>

namespace Scripting
{
namespace internal
{
// Which of a requester's dependencies stand for what the user asked for: all of the user's own requests;
// those marked `inheritsExplicit` of a requester that stands for it; none otherwise. Kept per requester, so
// that the factory's list of dependencies is walked as it comes.
enum class ExplicitRule
{
    All,
    Inherited,
    None,
};

bool isExplicit(ExplicitRule rule, const ModuleDependency& dependency)
{
    return rule == ExplicitRule::All || (rule == ExplicitRule::Inherited && dependency.inheritsExplicit);
}

// A dependency set waiting for one of its versions to be requested by someone.
struct PendingDependencySet
{
    ModuleDescriptor requester;
    ModuleDependency dependency;
};

// A factory version whose dependencies have been walked.
struct VisitedModuleVersion
{
    quv::UUID uuid;
    Version version;

    bool operator==(const VisitedModuleVersion&) const = default;

    struct Hash
    {
        size_t operator()(const VisitedModuleVersion& visited) const noexcept
        {
            return static_cast<size_t>(combineHash(quv::UUID::Hash()(visited.uuid), Version::Hash()(visited.version)));
        }
    };
};

// The first registered factory of each UUID. Built once per pass, so that finding a factory costs the same
// for the thousandth module as for the first.
class FactoryIndex
{
public:
    explicit FactoryIndex(const std::vector<std::unique_ptr<IModuleBindingFactory>>& factories)
    {
        mByUuid.reserve(factories.size());
        for (const auto& factory : factories)
        {
            if (factory != nullptr)
            {
                mByUuid.try_emplace(factory->getUUID(), factory.get());
            }
        }
    }

    IModuleBindingFactory* find(const quv::UUID& uuid) const
    {
        const auto found = mByUuid.find(uuid);
        return found == mByUuid.end() ? nullptr : found->second;
    }

private:
    std::unordered_map<quv::UUID, IModuleBindingFactory*> mByUuid;
};

// Places of UUIDs in a list, found in one array: open addressing with linear probing, at most half full. The
// walk looks a module up for every dependency it meets, and a node-based map pays a cache miss or two for each.
class UuidSlots
{
public:
    static constexpr size_t NONE = SIZE_MAX;

    // The place of `uuid`, NONE if it has none; `uuidAt` gives the UUID at a place.
    template <typename UuidAt>
    size_t find(const quv::UUID& uuid, const UuidAt& uuidAt) const
    {
        if (mSlots.empty())
        {
            return NONE;
        }
        for (size_t index = _home(uuid);; index = (index + 1) & mMask)
        {
            const size_t slot = mSlots[index];
            if (slot == 0)
            {
                return NONE;
            }
            if (uuidAt(slot - 1) == uuid)
            {
                return slot - 1;
            }
        }
    }

    // Files a UUID that `find` did not find, at `place`.
    template <typename UuidAt>
    void add(const quv::UUID& uuid, size_t place, const UuidAt& uuidAt)
    {
        if ((mCount + 1) * 2 > mSlots.size())
        {
            const size_t capacity = mSlots.empty() ? 64 : mSlots.size() * 2;
            std::vector<size_t> old = std::move(mSlots);
            mSlots.assign(capacity, 0);
            mMask = capacity - 1;
            mShift = 64 - static_cast<unsigned>(std::countr_zero(capacity));
            for (const size_t slot : old)
            {
                if (slot != 0)
                {
                    _insert(uuidAt(slot - 1), slot);
                }
            }
        }
        _insert(uuid, place + 1);
        ++mCount;
    }

private:
    // Fibonacci hashing over the UUID's own hash, which is a plain fold of its halves.
    size_t _home(const quv::UUID& uuid) const
    {
        return static_cast<size_t>((static_cast<uint64_t>(quv::UUID::Hash()(uuid)) * 0x9E3779B97F4A7C15ull) >> mShift);
    }

    void _insert(const quv::UUID& uuid, size_t slot)
    {
        size_t index = _home(uuid);
        while (mSlots[index] != 0)
        {
            index = (index + 1) & mMask;
        }
        mSlots[index] = slot;
    }

    // Place plus one; 0 is an empty slot.
    std::vector<size_t> mSlots;
    size_t mCount = 0;
    size_t mMask = 0;
    unsigned mShift = 64;
};

// Which versions of each module the table holds, kept so that "does any request meet this version" is a
// lookup instead of a scan over every request for the module.
class RequestedVersionIndex
{
public:
    void add(const quv::UUID& uuid, const Version& version)
    {
        Module& module = mModules[uuid];
        module.exact.insert(version);
        if (version.Major == 0)
        {
            return;
        }
        Highest& highest = module.highestByMajor[version.Major];
        std::optional<Number>& slot = version.hasPrerelease() ? highest.prerelease : highest.stable;
        slot = std::max(slot.value_or(Number{}), numberOf(version));
    }

    // Whether some held version satisfies `wanted`, not strictly. Only a stable version of major 1 or above
    // is ever met by another version than itself: by a stable one of its major that is not lower, or by a
    // prerelease of its major with higher numbers.
    bool meets(const quv::UUID& uuid, const Version& wanted) const
    {
        const auto module = mModules.find(uuid);
        if (module == mModules.end())
        {
            return false;
        }
        if (module->second.exact.contains(wanted))
        {
            return true;
        }
        if (wanted.Major == 0 || wanted.hasPrerelease())
        {
            return false;
        }
        const auto highest = module->second.highestByMajor.find(wanted.Major);
        if (highest == module->second.highestByMajor.end())
        {
            return false;
        }
        const Number number = numberOf(wanted);
        return (highest->second.stable && *highest->second.stable >= number) ||
               (highest->second.prerelease && *highest->second.prerelease > number);
    }

private:
    // Minor and patch; the major is the key they are held under.
    using Number = std::pair<uint16_t, uint16_t>;

    static Number numberOf(const Version& version) { return {version.Minor, version.Patch}; }

    struct Highest
    {
        std::optional<Number> stable;
        std::optional<Number> prerelease;
    };

    struct Module
    {
        std::unordered_set<Version> exact;
        std::unordered_map<uint16_t, Highest> highestByMajor;
    };

    std::unordered_map<quv::UUID, Module> mModules;
};

// Builds the request table. The walk over dependencies keeps its own stack, so that a chain of modules as
// long as an application cares to declare costs heap, not call stack.
class RequestTableBuilder
{
public:
    RequestTableBuilder(const std::vector<std::unique_ptr<IModuleBindingFactory>>& factories,
                        VersionSelection versionSelection)
        : mFactories(factories), mVersionSelection(versionSelection)
    {
    }

    VersionRequestTable build(const ModuleDescriptor& requester, const std::vector<ModuleDescriptor>& requested);

private:
    // What the walk asks a module's factory for on every request, asked once per build: the factories may not
    // change while a resolve runs.
    struct OfferedModule
    {
        static constexpr size_t NO_ENTRY = SIZE_MAX;
        static constexpr size_t NOT_OFFERED = SIZE_MAX;

        // What the walk works out for a request of one offered version, the same every time it is asked:
        // a module is requested at its few versions over and over.
        struct VersionFacts
        {
            bool settled = false;
            bool isAvailable = false;
            // The offered version a request is promoted to when it is not available, NOT_OFFERED for none.
            size_t promotion = NOT_OFFERED;
            // Its dependencies have been walked.
            bool visited = false;
        };

        quv::UUID uuid;
        // Null when no factory provides the module.
        IModuleBindingFactory* factory = nullptr;
        // The module's place in the table, once it has a request: one UUID lookup per request, not two.
        size_t tableEntry = NO_ENTRY;
        bool loaded = false;
        std::string name;
        std::vector<Version> offered;
        // The offered versions in the order a promotion looks at them: lowest or highest first.
        std::vector<Version> promotionOrder;
        // Beside `offered`, by index.
        std::vector<VersionFacts> facts;
    };

    // The requests of one requester, walked one dependency at a time. A dependency is handled in two steps,
    // because the walk descends into a promoted version before it records the plain request.
    struct WalkFrame
    {
        ModuleDescriptor requester;
        std::vector<ModuleDependency> dependencies;
        ExplicitRule explicitRule = ExplicitRule::None;
        size_t next = 0;
        bool promotionHandled = false;
        OfferedModule* module = nullptr;
        bool isAvailable = false;
        // The requested version's index in the module's offered versions.
        size_t offeredIndex = OfferedModule::NOT_OFFERED;

        void advance()
        {
            ++next;
            promotionHandled = false;
            module = nullptr;
        }
    };

    void _walk(ModuleDescriptor requester, std::vector<ModuleDependency> dependencies, ExplicitRule explicitRule);
    // `offeredIndex` is the version's index in the module's offered versions, NOT_OFFERED if it is not one.
    std::optional<WalkFrame> _descend(OfferedModule& module, const ModuleDependency& dependency,
                                      bool dependencyIsExplicit, const Version& version, size_t offeredIndex);
    // The request is written in place: a moved request costs as much as a copied one, its strings being short.
    void _addRequest(OfferedModule& module, const ModuleDependency& dependency, const Version& version,
                     const Version& requestedVersion, const ModuleDescriptor& requester, bool isAvailable,
                     bool isMissing, bool isExplicit, bool isPromotion);
    OfferedModule& _moduleOf(const quv::UUID& uuid);
    bool _isAvailable(const std::vector<Version>& offered, const Version& requested) const;
    const Version* _promotionFor(const OfferedModule& module, const Version& requested) const;
    // Availability and promotion of a request; for an offered version worked out once per build.
    void _settle(OfferedModule& module, const Version& requested, size_t offeredIndex, bool& isAvailable,
                 size_t& promotion) const;
    bool _isSatisfied(const PendingDependencySet& pending) const;

    FactoryIndex mFactories;
    VersionSelection mVersionSelection;
    // A deque: the walk holds on to modules while others are added.
    std::deque<OfferedModule> mOfferedModules;
    UuidSlots mOfferedSlots;
    VersionRequestTable mTable;
    // Only dependency sets ask what the table holds, so the index is built when the first one is settled.
    RequestedVersionIndex mRequestedVersions;
    bool mIndexRequests = false;
    // Walked versions that their module does not offer; offered ones are marked in the module's facts.
    std::unordered_set<VisitedModuleVersion, VisitedModuleVersion::Hash> mVisited;
    std::vector<PendingDependencySet> mPending;
};

// The first index of `version`, SIZE_MAX for none.
size_t indexIn(const std::vector<Version>& versions, const Version& version)
{
    const auto found = std::find(versions.begin(), versions.end(), version);
    return found != versions.end() ? static_cast<size_t>(found - versions.begin()) : SIZE_MAX;
}

bool contains(const std::vector<Version>& versions, const Version& version)
{
    return indexIn(versions, version) != SIZE_MAX;
}

Version highestOf(const std::vector<Version>& versions)
{
    Version highest = versions.front();
    for (const Version& version : versions)
    {
        if (highest < version)
        {
            highest = version;
        }
    }
    return highest;
}

VersionRequestTable RequestTableBuilder::build(const ModuleDescriptor& requester,
                                               const std::vector<ModuleDescriptor>& requested)
{
    // The caller's order must not matter. Stable, because Version's order is not a strict weak order for
    // every prerelease tag a request may carry.
    // Pointers are sorted, not the descriptors, which would be moved at every step.
    std::vector<const ModuleDescriptor*> sorted;
    sorted.reserve(requested.size());
    for (const ModuleDescriptor& descriptor : requested)
    {
        sorted.push_back(&descriptor);
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const ModuleDescriptor* left, const ModuleDescriptor* right)
                     {
                         if (left->name != right->name)
                         {
                             return left->name < right->name;
                         }
                         return left->version < right->version;
                     });
    std::vector<ModuleDependency> dependencies;
    dependencies.reserve(sorted.size());
    for (const ModuleDescriptor* descriptor : sorted)
    {
        dependencies.push_back(
            ModuleDependency{descriptor->name, descriptor->uuid, {descriptor->version}, descriptor->isInternal});
    }
    _walk(requester, std::move(dependencies), ExplicitRule::All);

    // Settle the dependency sets that no request met: the highest version of each becomes a strict
    // dependency of its requester, in order of registration. Met sets are skipped where they stand, which
    // keeps the order of the rest; satisfaction only ever grows with the table.
    if (mPending.empty())
    {
        return std::move(mTable);
    }
    for (const auto& [key, requests] : mTable)
    {
        for (const VersionRequestedBy& request : requests)
        {
            mRequestedVersions.add(key.uuid, request.version);
        }
    }
    mIndexRequests = true;
    size_t first = 0;
    while (true)
    {
        while (first < mPending.size() && _isSatisfied(mPending[first]))
        {
            ++first;
        }
        if (first == mPending.size())
        {
            break;
        }
        const PendingDependencySet current = mPending[first];
        IModuleBindingFactory* factory = mFactories.find(current.requester.uuid);
        OV_ASSERT(factory != nullptr, "Cannot find factory of dependency set requestor %s",
                  current.requester.name.c_str());
        if (factory == nullptr)
        {
            break;
        }
        std::vector<ModuleDependency> dependencies = factory->getDependencies(current.requester.version);
        const auto set = std::find(dependencies.begin(), dependencies.end(), current.dependency);
        if (set != dependencies.end())
        {
            set->versions = {highestOf(set->versions)};
        }
        _walk(current.requester, std::move(dependencies), ExplicitRule::None);

        // A set that stays unmet after its own strict dependency was added comes from a factory that
        // answered differently than before; give up unless some other set was met in the meantime.
        if (!_isSatisfied(mPending[first]))
        {
            const auto rest = mPending.begin() + static_cast<std::ptrdiff_t>(first) + 1;
            const auto kept = std::stable_partition(
                rest, mPending.end(), [this](const PendingDependencySet& pending) { return !_isSatisfied(pending); });
            const bool anyMet = kept != mPending.end();
            OV_ASSERT(anyMet,
                      "Should have satisfied at least one more dependency set after adding a strict dependency: %s",
                      current.requester.name.c_str());
            if (!anyMet)
            {
                break;
            }
            mPending.erase(kept, mPending.end());
        }
    }
    return std::move(mTable);
}

void RequestTableBuilder::_walk(ModuleDescriptor requester, std::vector<ModuleDependency> dependencies,
                                ExplicitRule explicitRule)
{
    std::vector<WalkFrame> stack;
    stack.push_back(WalkFrame{std::move(requester), std::move(dependencies), explicitRule});
    while (!stack.empty())
    {
        WalkFrame& frame = stack.back();
        if (frame.next == frame.dependencies.size())
        {
            stack.pop_back();
            continue;
        }
        const ModuleDependency& dependency = frame.dependencies[frame.next];
        const bool dependencyIsExplicit = isExplicit(frame.explicitRule, dependency);
        std::optional<WalkFrame> descent;
        if (!frame.promotionHandled)
        {
            frame.promotionHandled = true;
            if (dependency.versions.size() != 1)
            {
                OV_ASSERT(dependency.versions.size() > 1, "Expect dependency %s to be dependency set",
                          dependency.name.c_str());
                mPending.push_back({frame.requester, dependency});
                frame.advance();
                continue;
            }
            const Version& requested = dependency.versions.front();
            frame.module = &_moduleOf(dependency.uuid);
            if (frame.module->factory == nullptr)
            {
                _addRequest(*frame.module, dependency, requested, requested, frame.requester, false, true,
                            dependencyIsExplicit, false);
                frame.advance();
                continue;
            }
            frame.offeredIndex = indexIn(frame.module->offered, requested);
            size_t promotion = OfferedModule::NOT_OFFERED;
            _settle(*frame.module, requested, frame.offeredIndex, frame.isAvailable, promotion);
            if (promotion != OfferedModule::NOT_OFFERED)
            {
                const Version& promoted = frame.module->offered[promotion];
                _addRequest(*frame.module, dependency, promoted, requested, frame.requester, true, false,
                            dependencyIsExplicit, true);
                descent = _descend(*frame.module, dependency, dependencyIsExplicit, promoted, promotion);
            }
        }
        else
        {
            const Version& requested = dependency.versions.front();
            const bool isOffered = frame.offeredIndex != OfferedModule::NOT_OFFERED;
            _addRequest(*frame.module, dependency, requested, requested, frame.requester, frame.isAvailable, !isOffered,
                        dependencyIsExplicit, false);
            descent = _descend(*frame.module, dependency, dependencyIsExplicit, requested, frame.offeredIndex);
            frame.advance();
        }
        if (descent)
        {
            // Invalidates `frame`; nothing below uses it.
            stack.push_back(std::move(*descent));
        }
    }
}

std::optional<RequestTableBuilder::WalkFrame> RequestTableBuilder::_descend(OfferedModule& module,
                                                                            const ModuleDependency& dependency,
                                                                            bool dependencyIsExplicit,
                                                                            const Version& version, size_t offeredIndex)
{
    if (offeredIndex != OfferedModule::NOT_OFFERED)
    {
        bool& visited = module.facts[offeredIndex].visited;
        if (visited)
        {
            return std::nullopt;
        }
        visited = true;
    }
    else if (!mVisited.insert({dependency.uuid, version}).second)
    {
        return std::nullopt;
    }
    return WalkFrame{ModuleDescriptor{module.name, dependency.uuid, version, false},
                     module.factory->getDependencies(version),
                     dependencyIsExplicit ? ExplicitRule::Inherited : ExplicitRule::None};
}

RequestTableBuilder::OfferedModule& RequestTableBuilder::_moduleOf(const quv::UUID& uuid)
{
    const auto uuidAt = [this](size_t place) -> const quv::UUID& { return mOfferedModules[place].uuid; };
    size_t place = mOfferedSlots.find(uuid, uuidAt);
    if (place == UuidSlots::NONE)
    {
        place = mOfferedModules.size();
        OfferedModule& added = mOfferedModules.emplace_back();
        added.uuid = uuid;
        added.factory = mFactories.find(uuid);
        mOfferedSlots.add(uuid, place, uuidAt);
    }
    OfferedModule& module = mOfferedModules[place];
    if (module.factory != nullptr && !module.loaded)
    {
        module.loaded = true;
        module.name = module.factory->getName();
        module.offered = module.factory->getSupportedVersions();
        module.facts.resize(module.offered.size());
        module.promotionOrder = module.offered;
        switch (mVersionSelection)
        {
        case VersionSelection::LowestSatisfying:
            std::stable_sort(module.promotionOrder.begin(), module.promotionOrder.end());
            break;
        case VersionSelection::HighestSatisfying:
            std::stable_sort(module.promotionOrder.begin(), module.promotionOrder.end(),
                             [](const Version& left, const Version& right) { return right < left; });
            break;
        }
    }
    return module;
}

void RequestTableBuilder::_addRequest(OfferedModule& module, const ModuleDependency& dependency, const Version& version,
                                      const Version& requestedVersion, const ModuleDescriptor& requester,
                                      bool isAvailable, bool isMissing, bool isExplicit, bool isPromotion)
{
    if (mIndexRequests)
    {
        mRequestedVersions.add(dependency.uuid, version);
    }
    if (module.tableEntry == OfferedModule::NO_ENTRY)
    {
        module.tableEntry = mTable._entryOf(dependency.uuid, dependency.name);
    }
    VersionRequestedBy& request = mTable._requestsAt(module.tableEntry).emplace_back();
    request.version = version;
    request.requestedVersion = requestedVersion;
    request.requestedBy = requester;
    request.isAvailable = isAvailable;
    request.isMissing = isMissing;
    request.isExplicit = isExplicit;
    request.isPromotion = isPromotion;
}

void RequestTableBuilder::_settle(OfferedModule& module, const Version& requested, size_t offeredIndex,
                                  bool& isAvailable, size_t& promotion) const
{
    const auto work = [&](bool& available, size_t& promoted)
    {
        available = _isAvailable(module.offered, requested);
        promoted = OfferedModule::NOT_OFFERED;
        if (!available)
        {
            if (const Version* version = _promotionFor(module, requested))
            {
                // The first offered copy of the version: visits are marked there.
                promoted = indexIn(module.offered, *version);
            }
        }
    };
    if (offeredIndex == OfferedModule::NOT_OFFERED)
    {
        work(isAvailable, promotion);
        return;
    }
    OfferedModule::VersionFacts& facts = module.facts[offeredIndex];
    if (!facts.settled)
    {
        work(facts.isAvailable, facts.promotion);
        facts.settled = true;
    }
    isAvailable = facts.isAvailable;
    promotion = facts.promotion;
}

bool RequestTableBuilder::_isAvailable(const std::vector<Version>& offered, const Version& requested) const
{
    switch (mVersionSelection)
    {
    case VersionSelection::LowestSatisfying:
        return contains(offered, requested);
    case VersionSelection::HighestSatisfying:
    {
        const Version* highest = nullptr;
        for (const Version& version : offered)
        {
            if (version.satisfies(requested, true) && (highest == nullptr || !(version < *highest)))
            {
                highest = &version;
            }
        }
        return highest != nullptr && *highest == requested;
    }
    }
    return false;
}

const Version* RequestTableBuilder::_promotionFor(const OfferedModule& module, const Version& requested) const
{
    for (const Version& version : module.promotionOrder)
    {
        if (version.satisfies(requested, true))
        {
            return &version;
        }
    }
    return nullptr;
}

bool RequestTableBuilder::_isSatisfied(const PendingDependencySet& pending) const
{
    const ModuleDependency& set = pending.dependency;
    return set.versions.empty() ||
           std::any_of(set.versions.begin(), set.versions.end(),
                       [&](const Version& version) { return mRequestedVersions.meets(set.uuid, version); });
}

// The pairs of requests for one module that no single version meets, in the order a check of every pair,
// first request ahead of second, would find them.
//
// Whether a pair meets follows from the promotion rule: the higher version must satisfy the lower, strictly
// unless the higher request is explicit or an explicit request is at least as high. Worked out by kind, only
// prereleases of a major standing above a stable request of that major can meet across kinds; requests of
// different majors never meet; versions of major 0 and prereleases meet only their equals; stable versions
// of one major always meet. So only pairs that conflict are ever visited, and a module that thousands of
// modules depend on costs no more than its requests and its conflicts.
std::vector<std::pair<size_t, size_t>> findConflictingPairs(const std::vector<VersionRequestedBy>& requests)
{
    // The usual case, stable requests of one major, needs no grouping.
    const uint16_t firstMajor = requests.front().version.Major;
    if (firstMajor != 0 && std::all_of(requests.begin(), requests.end(),
                                       [firstMajor](const VersionRequestedBy& request) {
                                           return request.isPromotion || (request.version.Major == firstMajor &&
                                                                          !request.version.hasPrerelease());
                                       }))
    {
        return {};
    }

    const auto explicitRequest = std::find_if(requests.begin(), requests.end(),
                                              [](const VersionRequestedBy& request) { return request.isExplicit; });
    // Whether a prerelease request must satisfy a lower stable one strictly, as the higher of a pair.
    const auto isStrict = [&](const VersionRequestedBy& higher)
    {
        if (higher.isExplicit)
        {
            return false;
        }
        return explicitRequest == requests.end() || explicitRequest->version < higher.version;
    };

    struct MajorRequests
    {
        uint16_t major = 0;
        std::vector<size_t> members;
        // Stable requests of a major of 1 or above, as (minor, patch, index).
        std::vector<std::tuple<uint16_t, uint16_t, size_t>> stable;
        // Requests only their equals meet: prereleases, and anything of major 0.
        std::vector<std::vector<size_t>> equalGroups;
        std::unordered_map<Version, size_t> equalGroupOf;
    };
    std::vector<MajorRequests> majors;
    std::unordered_map<uint16_t, size_t> majorIndex;
    for (size_t index = 0; index < requests.size(); ++index)
    {
        const VersionRequestedBy& request = requests[index];
        if (request.isPromotion)
        {
            continue;
        }
        const Version& version = request.version;
        const auto [slot, added] = majorIndex.try_emplace(version.Major, majors.size());
        if (added)
        {
            majors.push_back({version.Major, {}, {}, {}, {}});
        }
        MajorRequests& major = majors[slot->second];
        major.members.push_back(index);
        if (version.Major != 0 && !version.hasPrerelease())
        {
            major.stable.emplace_back(version.Minor, version.Patch, index);
            continue;
        }
        const auto [group, newGroup] = major.equalGroupOf.try_emplace(version, major.equalGroups.size());
        if (newGroup)
        {
            major.equalGroups.emplace_back();
        }
        major.equalGroups[group->second].push_back(index);
    }

    std::vector<std::pair<size_t, size_t>> pairs;
    const auto addAll = [&pairs](const std::vector<size_t>& left, const std::vector<size_t>& right)
    {
        for (size_t a : left)
        {
            for (size_t b : right)
            {
                pairs.emplace_back(std::min(a, b), std::max(a, b));
            }
        }
    };
    for (size_t first = 0; first < majors.size(); ++first)
    {
        for (size_t second = first + 1; second < majors.size(); ++second)
        {
            addAll(majors[first].members, majors[second].members);
        }
        MajorRequests& major = majors[first];
        for (size_t group = 0; group < major.equalGroups.size(); ++group)
        {
            for (size_t other = group + 1; other < major.equalGroups.size(); ++other)
            {
                addAll(major.equalGroups[group], major.equalGroups[other]);
            }
        }
        if (major.major == 0 || major.stable.empty())
        {
            continue;
        }
        std::sort(major.stable.begin(), major.stable.end());
        for (const std::vector<size_t>& group : major.equalGroups)
        {
            for (size_t prerelease : group)
            {
                const Version& version = requests[prerelease].version;
                // A stable request at or above the prerelease's numbers is the higher of the pair, and a
                // stable version never satisfies a prerelease.
                auto conflicting = major.stable.begin();
                if (!isStrict(requests[prerelease]))
                {
                    conflicting = std::lower_bound(major.stable.begin(), major.stable.end(),
                                                   std::make_tuple(version.Minor, version.Patch, size_t{0}));
                }
                for (; conflicting != major.stable.end(); ++conflicting)
                {
                    const size_t stable = std::get<2>(*conflicting);
                    pairs.emplace_back(std::min(prerelease, stable), std::max(prerelease, stable));
                }
            }
        }
    }
    std::sort(pairs.begin(), pairs.end());
    return pairs;
}

ModuleDescriptor moduleAt(const VersionRequestKey& key, Version version)
{
    return ModuleDescriptor{key.name, key.uuid, std::move(version), false};
}

// Name, or the UUID's text for a module without one, and the version unless it is 0.0.0.
std::string displayText(const ModuleDescriptor& descriptor)
{
    std::string text = descriptor.name.empty() ? descriptor.uuid.asString() : descriptor.name;
    if (descriptor.version.isValid())
    {
        text += " - ";
        text += descriptor.version.toString();
    }
    return text;
}
} // namespace internal

namespace
{
constexpr const char* COLOUR_PREFIX = "§c";
constexpr const char* INDENT = "    ";

void appendRequest(std::string& text, const ModuleDescriptor& module, const ModuleDescriptor& requestedBy)
{
    text += COLOUR_PREFIX;
    text += "[";
    text += internal::displayText(module);
    text += "] requested by [";
    text += internal::displayText(requestedBy);
    text += "]";
}

template <typename Failure, typename Write>
void appendSection(std::string& text, const char* heading, const std::vector<Failure>& failures, Write write)
{
    if (failures.empty())
    {
        return;
    }
    text += "\n";
    text += COLOUR_PREFIX;
    text += heading;
    for (const Failure& failure : failures)
    {
        text += "\n";
        text += INDENT;
        write(failure);
    }
}
} // namespace

bool ModuleResolveResult::hasErrors() const
{
    return !missingModules.empty() || !missingVersions.empty() || !conflicts.empty();
}

std::string ModuleResolveResult::getErrorText() const
{
    std::string text;
    const auto writeFailure = [&text](const ModuleRequestFailure& failure)
    { appendRequest(text, failure.module, failure.requestedBy); };
    appendSection(text, "Missing Modules: ", missingModules, writeFailure);
    appendSection(text, "Missing Versioned Modules: ", missingVersions, writeFailure);
    appendSection(text, "Conflicting Modules: ", conflicts,
                  [&text](const ModuleVersionConflict& conflict)
                  {
                      text += "[";
                      text += internal::displayText(conflict.module);
                      text += "]\n";
                      text += INDENT;
                      appendRequest(text, conflict.firstRequested, conflict.firstRequestedBy);
                      text += "\n";
                      text += INDENT;
                      appendRequest(text, conflict.secondRequested, conflict.secondRequestedBy);
                  });
    return text;
}

void VersionRequestTable::add(const VersionRequestKey& key, VersionRequestedBy request)
{
    _requestsAt(_entryOf(key.uuid, key.name)).push_back(std::move(request));
}

size_t VersionRequestTable::_entryOf(const quv::UUID& uuid, const std::string& name)
{
    const auto [slot, added] = mIndexByUuid.try_emplace(uuid, mEntries.size());
    if (added)
    {
        mEntries.emplace_back(VersionRequestKey{uuid, name}, std::vector<VersionRequestedBy>());
        // Modules are mostly asked for by several requesters; the first growth steps would move every record.
        mEntries.back().second.reserve(4);
    }
    return slot->second;
}

DependencyResolver::DependencyResolver(const std::vector<std::unique_ptr<IModuleBindingFactory>>& factories,
                                       VersionSelection versionSelection)
    : mFactories(factories), mVersionSelection(versionSelection)
{
}

ModuleResolveResult DependencyResolver::resolve(const ModuleDescriptor& requester,
                                                const std::vector<ModuleDescriptor>& requested) const
{
    return _resolveDependencyRequests(_buildVersionRequestTable(requester, requested));
}

VersionRequestTable DependencyResolver::_buildVersionRequestTable(const ModuleDescriptor& requester,
                                                                  const std::vector<ModuleDescriptor>& requested) const
{
    return internal::RequestTableBuilder(mFactories, mVersionSelection).build(requester, requested);
}

ModuleResolveResult DependencyResolver::_resolveDependencyRequests(const VersionRequestTable& table) const
{
    const internal::FactoryIndex factories(mFactories);
    ModuleResolveResult result;
    std::vector<SupportedBindingModule> supported;
    supported.reserve(table.size());
    // Every request but one per module may turn out a promotion, and promotions are the bulk of a large
    // resolve; reserving the bound spares moving the records as the list grows. Pages of a large block that
    // are never written are never touched.
    size_t requestCount = 0;
    for (const VersionRequestTable::Entry& entry : table)
    {
        requestCount += entry.second.size();
    }
    result.promotions.reserve(requestCount - table.size());
    for (const VersionRequestTable::Entry& entry : table)
    {
        // Named, not bound, so that the lambdas below may capture them.
        const VersionRequestKey& key = entry.first;
        const std::vector<VersionRequestedBy>& requests = entry.second;
        OV_ASSERT(!requests.empty(), "How did this happen, module entry in table would only exist if it had requests!");
        if (requests.empty())
        {
            continue;
        }

        const std::vector<std::pair<size_t, size_t>> conflicting = internal::findConflictingPairs(requests);
        for (const auto& [first, second] : conflicting)
        {
            const VersionRequestedBy& a = requests[first];
            const VersionRequestedBy& b = requests[second];
            result.conflicts.push_back({internal::moduleAt(key, Version()), a.requestedBy, b.requestedBy,
                                        internal::moduleAt(key, a.requestedVersion),
                                        internal::moduleAt(key, b.requestedVersion)});
        }

        IModuleBindingFactory* factory = factories.find(key.uuid);
        if (factory == nullptr)
        {
            for (const VersionRequestedBy& request : requests)
            {
                result.missingModules.push_back({internal::moduleAt(key, request.version), request.requestedBy});
            }
            continue;
        }

        const auto reportMissingVersions = [&]
        {
            for (const VersionRequestedBy& request : requests)
            {
                if (request.isMissing)
                {
                    result.missingVersions.push_back({internal::moduleAt(key, request.version), request.requestedBy});
                }
            }
        };
        if (!conflicting.empty())
        {
            reportMissingVersions();
            continue;
        }

        // Equal versions replace, so among equals the last request wins.
        const VersionRequestedBy* best = &requests.front();
        for (const VersionRequestedBy& request : requests)
        {
            if (request.version.satisfies(best->version, false))
            {
                best = &request;
            }
        }
        if (!best->isAvailable)
        {
            reportMissingVersions();
            continue;
        }
        for (const VersionRequestedBy& request : requests)
        {
            if (request.version != best->version)
            {
                // Written in place, as the requests are.
                ModuleVersionPromotion& promotion = result.promotions.emplace_back();
                promotion.module.name = key.name;
                promotion.module.uuid = key.uuid;
                promotion.requestedBy = request.requestedBy;
                promotion.fromVersion = request.version;
                promotion.toVersion = best->version;
            }
        }
        supported.push_back({internal::moduleAt(key, best->version), factory->getDependencies(best->version)});
    }

    if (!result.hasErrors())
    {
        result.modules = _orderModulesByDependency(std::move(supported));
    }
    return result;
}

// Equivalent to moving modules in passes, in input order, each module as soon as every UUID it depends on is
// in the result: a module moves in the first pass after the passes of its dependencies, or in the same pass
// when every dependency stands ahead of it. That pass and the module's position decide the output order,
// so the modules are taken in that order from a queue instead of being scanned pass after pass.
std::vector<ModuleDescriptor>
DependencyResolver::_orderModulesByDependency(std::vector<SupportedBindingModule>&& modules) const
{
    using Slot = std::pair<size_t, size_t>; // (pass, position)
    std::priority_queue<Slot, std::vector<Slot>, std::greater<>> ready;
    std::vector<size_t> pass(modules.size(), 1);
    std::vector<size_t> unmet(modules.size(), 0);
    std::unordered_map<quv::UUID, std::vector<size_t>> waiting;
    for (size_t position = 0; position < modules.size(); ++position)
    {
        for (const ModuleDependency& dependency : modules[position].dependencies)
        {
            waiting[dependency.uuid].push_back(position);
            ++unmet[position];
        }
        if (unmet[position] == 0)
        {
            ready.emplace(1, position);
        }
    }

    std::vector<ModuleDescriptor> ordered;
    ordered.reserve(modules.size());
    while (!ready.empty())
    {
        const auto [modulePass, position] = ready.top();
        ready.pop();
        ordered.push_back(std::move(modules[position].descriptor));
        const auto waiters = waiting.find(ordered.back().uuid);
        if (waiters == waiting.end())
        {
            continue;
        }
        for (size_t waiter : waiters->second)
        {
            // A dependency that moved behind the waiter's position is only in the result by the next pass.
            pass[waiter] = std::max(pass[waiter], modulePass + (position > waiter ? 1 : 0));
            if (--unmet[waiter] == 0)
            {
                ready.emplace(pass[waiter], waiter);
            }
        }
        waiting.erase(waiters);
    }

    OV_ASSERT(ordered.size() == modules.size(), "Could not resolve dependencies, circular reference detected.");
    return ordered;
}
} // namespace Scripting
