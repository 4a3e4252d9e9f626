// Sequences of operations on registries, objects and handles, through the public API only, checked after each
// step against a model that counts references by hand: which objects live, their counts, what handles and
// tracking answer, which asserts were raised, and what listeners and script refs were told.
//
// The input is a list of steps: an operation byte, then the bytes of its arguments. A step the model knows to
// be misuse (a key tracked twice, a dereference of a dead object) is skipped; misuse whose assert the library
// defines (promoting a dead handle, a registry destroyed with objects in it) is made on purpose and its assert
// expected.
#include "FuzzSupport.h"

#include "Diagnostics/Assert.h"
#include "Scripting/LifetimeRegistry/HandleTracker.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include <algorithm>
#include <array>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{
using namespace Scripting;

constexpr size_t STRONG_SLOTS = 8;
constexpr size_t WEAK_SLOTS = 8;
constexpr size_t MAX_LIVE_REGISTRIES = 3;
constexpr uint32_t KEYS = 8;

constexpr const char* REMOVING = "This handle is being removed";
constexpr const char* PROMOTE_INVALID = "Trying to promote an invalid weak handle.";
constexpr const char* NOT_EMPTY =
    "You expected all objects owned by this LifetimeRegistry would be dead, but it still has objects";
constexpr const char* TO_GENERIC_INVALID = "Trying to convert an invalid handle to a generic handle.";
constexpr const char* AS_GENERIC_INVALID = "Trying to make an invalid handle generic.";

struct Payload : EnableWeakHandleFromThis
{
    using HandleKey = uint32_t;

    explicit Payload(size_t serial) : serial(serial) {}

    size_t serial;
    // Objects holding objects: chains, cycles, objects that hold themselves, and links between registries.
    StrongTypedObjectHandle<Payload> link;
};

struct Told
{
    uint32_t created = 0;
    uint32_t destroyed = 0;
};

class Listener final : public ILifetimeObjectListener
{
public:
    void onObjectCreated(LifetimeRegistry&, ObjectHandle handle, const entt::meta_type&, unsigned) override
    {
        ++mTold[handle.toU64()].created;
    }
    void onObjectDestroyed(LifetimeRegistry&, ObjectHandle handle, const entt::meta_type&, unsigned) override
    {
        ++mTold[handle.toU64()].destroyed;
    }

    Told told(ObjectHandle handle) const
    {
        const auto found = mTold.find(handle.toU64());
        return found == mTold.end() ? Told{} : found->second;
    }

private:
    std::unordered_map<uint64_t, Told> mTold;
};

struct RefTold
{
    uint32_t raised = 0;
    uint32_t lowered = 0;
    uint32_t destroyed = 0;
};

class CountingRef final : public IScriptRef
{
public:
    explicit CountingRef(RefTold& told) : mTold(told) {}
    void onReferenceCountLoweredToOne() override { ++mTold.lowered; }
    void onReferenceCountRaisedToTwo() override { ++mTold.raised; }
    void onObjectDestroyed() override { ++mTold.destroyed; }

private:
    RefTold& mTold;
};

struct Object
{
    size_t registry = 0;
    ObjectHandle handle;
    bool alive = true;
    uint32_t refs = 1;
    std::optional<size_t> link;
    bool tracked = false;
    uint32_t key = 0;
    bool hasScriptRef = false;
    // What the script ref should have heard. A registry's teardown kills in an order of its own, and a dying
    // object's own handles may still lower its count: either way its count may cross down to one before it dies.
    uint32_t raised = 0;
    uint32_t lowered = 0;
    bool loweredMayBeOneMore = false;
    RefTold refTold;
};

struct Registry
{
    std::unique_ptr<LifetimeRegistry> registry;
    std::shared_ptr<Listener> listener;
    // Kept after the registry dies: a scope of a dead registry must find nothing.
    WeakLifetimeScope scope;
};

class World
{
public:
    void step(Fuzz::Input& input)
    {
        const uint8_t operation = input.byte();
        const uint8_t a = input.byte();
        const uint8_t b = input.byte();
        const uint8_t c = input.byte();
        _beginStep();
        const std::vector<std::string> asserts =
            Ovelith::Diagnostics::collectAsserts([&] { _apply(operation % OPERATIONS, a, b, c); });
        _checkAsserts(asserts);
        const std::vector<std::string> checkAsserts = Ovelith::Diagnostics::collectAsserts([&] { _check(); });
        FUZZ_CHECK(checkAsserts.empty());
    }

    void finish()
    {
        for (size_t r = 0; r < mRegistries.size(); ++r)
        {
            if (mRegistries[r].registry)
            {
                _beginStep();
                const std::vector<std::string> asserts =
                    Ovelith::Diagnostics::collectAsserts([&] { _destroyRegistry(r, false); });
                _checkAsserts(asserts);
            }
        }
        const std::vector<std::string> checkAsserts = Ovelith::Diagnostics::collectAsserts(
            [&]
            {
                _check();
                for (size_t serial = 0; serial < mObjects.size(); ++serial)
                {
                    FUZZ_CHECK(!mObjects[serial].alive);
                    _checkTold(serial);
                }
                // Counting sweeps all 255 slots, each against the free list, which costs more than a whole step:
                // once, at the end.
                FUZZ_CHECK(mManager.getRegistryCount() == 0);
            });
        FUZZ_CHECK(checkAsserts.empty());
    }

private:
    static constexpr uint8_t OPERATIONS = 21;

    void _beginStep()
    {
        mExpectedAsserts.clear();
        mMayAssertRemoving = false;
        mTouched.clear();
    }

    // ---- The model ----

    void _addReference(size_t serial)
    {
        Object& object = mObjects[serial];
        if (!object.alive)
        {
            return;
        }
        mTouched.push_back(serial);
        if (++object.refs == 2 && object.hasScriptRef)
        {
            ++object.raised;
        }
    }

    void _removeReference(size_t serial)
    {
        Object& object = mObjects[serial];
        if (!object.alive)
        {
            // A handle to an object that dies in this very step may be dropped while the object is being
            // removed: that asserts, and the count still going down may reach one on the way.
            if (std::find(mTouched.begin(), mTouched.end(), serial) != mTouched.end())
            {
                mMayAssertRemoving = true;
                object.loweredMayBeOneMore = object.hasScriptRef;
            }
            return;
        }
        mTouched.push_back(serial);
        --object.refs;
        if (object.refs == 1 && object.hasScriptRef)
        {
            ++object.lowered;
        }
        if (object.refs == 0)
        {
            _kill(serial);
        }
    }

    void _kill(size_t serial)
    {
        Object& object = mObjects[serial];
        object.alive = false;
        object.tracked = false;
        mTouched.push_back(serial);
        if (const std::optional<size_t> link = std::exchange(object.link, std::nullopt))
        {
            _removeReference(*link);
        }
    }

    void _setStrong(size_t slot, std::optional<size_t> serial)
    {
        const std::optional<size_t> old = std::exchange(mStrongModel[slot], serial);
        if (old)
        {
            _removeReference(*old);
        }
    }

    const Object* _strongObject(size_t slot) const
    {
        return mStrongModel[slot] ? &mObjects[*mStrongModel[slot]] : nullptr;
    }

    bool _strongAlive(size_t slot) const
    {
        const Object* object = _strongObject(slot);
        return object != nullptr && object->alive;
    }

    size_t _liveRegistries() const
    {
        return static_cast<size_t>(std::count_if(mRegistries.begin(), mRegistries.end(),
                                                 [](const Registry& r) { return r.registry != nullptr; }));
    }

    // The index of the `choice`-th live registry, if there is one.
    std::optional<size_t> _liveRegistry(uint8_t choice) const
    {
        std::vector<size_t> live;
        for (size_t r = 0; r < mRegistries.size(); ++r)
        {
            if (mRegistries[r].registry)
            {
                live.push_back(r);
            }
        }
        if (live.empty())
        {
            return std::nullopt;
        }
        return live[choice % live.size()];
    }

    std::optional<size_t> _trackedUnder(size_t registry, uint32_t key) const
    {
        for (size_t serial = 0; serial < mObjects.size(); ++serial)
        {
            const Object& object = mObjects[serial];
            if (object.alive && object.tracked && object.registry == registry && object.key == key)
            {
                return serial;
            }
        }
        return std::nullopt;
    }

    // ---- The steps ----

    void _apply(uint8_t operation, uint8_t a, uint8_t b, uint8_t c)
    {
        const size_t strongA = a % STRONG_SLOTS;
        const size_t strongB = b % STRONG_SLOTS;
        const size_t weakA = a % WEAK_SLOTS;
        const size_t weakB = b % WEAK_SLOTS;
        switch (operation)
        {
        case 0:
            _createRegistry();
            break;
        case 1:
            if (const std::optional<size_t> r = _liveRegistry(a))
            {
                _destroyRegistry(*r, b % 2 == 1);
            }
            break;
        case 2:
            if (const std::optional<size_t> r = _liveRegistry(a))
            {
                _makeObject(*r, strongB);
            }
            break;
        case 3:
            mStrong[strongB] = mStrong[strongA];
            _copyStrongModel(strongA, strongB);
            break;
        case 4:
            mStrong[strongB] = std::move(mStrong[strongA]);
            if (strongA != strongB)
            {
                _setStrong(strongB, std::exchange(mStrongModel[strongA], std::nullopt));
            }
            break;
        case 5:
            mStrong[strongA] = StrongTypedObjectHandle<Payload>();
            _setStrong(strongA, std::nullopt);
            break;
        case 6:
            mWeak[weakB] = WeakTypedObjectHandle<Payload>(mStrong[strongA]);
            mWeakModel[weakB] = mStrongModel[strongA];
            break;
        case 7:
            mWeak[weakB] = mWeak[weakA];
            mWeakModel[weakB] = mWeakModel[weakA];
            break;
        case 8:
            mWeak[weakB] = std::move(mWeak[weakA]);
            if (weakA != weakB)
            {
                mWeakModel[weakB] = std::exchange(mWeakModel[weakA], std::nullopt);
            }
            break;
        case 9:
            mWeak[weakA] = WeakObjectHandle();
            mWeakModel[weakA].reset();
            break;
        case 10:
            _promote(weakA, strongB);
            break;
        case 11:
            _track(strongA, b % KEYS, c % 2 == 0);
            break;
        case 12:
            _fetch(a, b % KEYS, c % STRONG_SLOTS);
            break;
        case 13:
            _untrack(strongA);
            break;
        case 14:
            if (const std::optional<size_t> r = _liveRegistry(a))
            {
                _untrackAll(*r);
            }
            break;
        case 15:
            // Through a weak handle the object may have no holder left but itself.
            if (c % 2 == 0)
            {
                _destroyObject(mStrongModel[strongA], mStrong[strongA].getHandle());
            }
            else
            {
                _destroyObject(mWeakModel[weakA], mWeak[weakA].getHandle());
            }
            break;
        case 16:
            _link(strongA, std::optional<size_t>(strongB));
            break;
        case 17:
            _link(strongA, std::nullopt);
            break;
        case 18:
            _setScriptRef(strongA);
            break;
        case 19:
            _generic(strongA);
            break;
        case 20:
            if (_strongAlive(strongA))
            {
                mWeak[weakB] = mStrong[strongA]->weakHandleFromThis();
                mWeakModel[weakB] = mStrongModel[strongA];
            }
            break;
        default:
            break;
        }
    }

    void _createRegistry()
    {
        if (_liveRegistries() >= MAX_LIVE_REGISTRIES)
        {
            return;
        }
        std::unique_ptr<LifetimeRegistry> registry = mManager.createLifetimeRegistry();
        FUZZ_CHECK(registry != nullptr);
        for (const Registry& other : mRegistries)
        {
            FUZZ_CHECK(!other.registry || other.registry->getContextId() != registry->getContextId());
        }
        auto listener = std::make_shared<Listener>();
        registry->addObjectListener(listener);
        WeakLifetimeScope scope = registry->getScope();
        mRegistries.push_back({std::move(registry), std::move(listener), std::move(scope)});
    }

    void _destroyRegistry(size_t r, bool withoutTeardown)
    {
        std::vector<size_t> dying;
        for (size_t serial = 0; serial < mObjects.size(); ++serial)
        {
            if (mObjects[serial].alive && mObjects[serial].registry == r)
            {
                dying.push_back(serial);
            }
        }
        if (withoutTeardown && !dying.empty())
        {
            mExpectedAsserts.emplace_back(NOT_EMPTY);
        }
        if (!withoutTeardown)
        {
            mRegistries[r].registry->destroyLifetimeScope(false);
        }
        mRegistries[r].registry.reset();

        for (const size_t serial : dying)
        {
            Object& object = mObjects[serial];
            object.alive = false;
            object.tracked = false;
            object.loweredMayBeOneMore = object.hasScriptRef;
            mTouched.push_back(serial);
        }
        for (const size_t serial : dying)
        {
            if (const std::optional<size_t> link = std::exchange(mObjects[serial].link, std::nullopt))
            {
                _removeReference(*link);
            }
        }
    }

    void _makeObject(size_t r, size_t slot)
    {
        const size_t serial = mObjects.size();
        mObjects.emplace_back();
        mObjects[serial].registry = r;
        StrongTypedObjectHandle<Payload> made = mRegistries[r].registry->getScope().makeObject<Payload>(serial);
        mObjects[serial].handle = made.getHandle();
        mTouched.push_back(serial);
        mStrong[slot] = std::move(made);
        _setStrong(slot, serial);
    }

    // Copy assignment drops the target's reference before it takes the new one, also when both are one handle.
    void _copyStrongModel(size_t from, size_t to)
    {
        const std::optional<size_t> serial = mStrongModel[from];
        _setStrong(to, serial);
        if (serial)
        {
            _addReference(*serial);
        }
    }

    void _promote(size_t weak, size_t strong)
    {
        const bool alive = mWeakModel[weak] && mObjects[*mWeakModel[weak]].alive;
        if (!alive)
        {
            mExpectedAsserts.emplace_back(PROMOTE_INVALID);
        }
        StrongObjectHandle promoted = StrongObjectHandle::promote(mWeak[weak]);
        FUZZ_CHECK(promoted.valid() == alive);
        if (alive)
        {
            _addReference(*mWeakModel[weak]);
            WeakLifetimeScope scope = promoted.getScope();
            mStrong[strong] = StrongTypedObjectHandle<Payload>(std::move(scope), promoted.release(), false);
            _setStrong(strong, mWeakModel[weak]);
        }
    }

    void _track(size_t slot, uint32_t key, bool addReference)
    {
        const Object* object = _strongObject(slot);
        if (object == nullptr || !object->alive || object->tracked || _trackedUnder(object->registry, key))
        {
            return;
        }
        const size_t serial = *mStrongModel[slot];
        HandleTracker::trackWith<Payload>(*mRegistries[object->registry].registry,
                                          TypedObjectHandle<Payload>(mStrong[slot].getHandle()), key, addReference);
        mObjects[serial].tracked = true;
        mObjects[serial].key = key;
        mTouched.push_back(serial);
        if (addReference)
        {
            _addReference(serial);
        }
    }

    void _fetch(uint8_t registryChoice, uint32_t key, size_t slot)
    {
        if (mRegistries.empty())
        {
            return;
        }
        // Any registry, dead ones included.
        const size_t r = registryChoice % mRegistries.size();
        std::optional<StrongTypedObjectHandle<Payload>> found =
            HandleTracker::fetch<Payload>(mRegistries[r].scope, key);
        const std::optional<size_t> expected = mRegistries[r].registry ? _trackedUnder(r, key) : std::nullopt;
        FUZZ_CHECK(found.has_value() == expected.has_value());
        if (found)
        {
            FUZZ_CHECK(found->getHandle() == mObjects[*expected].handle);
            _addReference(*expected);
            mStrong[slot] = std::move(*found);
            _setStrong(slot, expected);
        }
    }

    void _untrack(size_t slot)
    {
        const Object* object = _strongObject(slot);
        if (object == nullptr || !object->alive || !object->tracked)
        {
            return;
        }
        const size_t serial = *mStrongModel[slot];
        HandleTracker::untrack<Payload>(*mRegistries[object->registry].registry,
                                        TypedObjectHandle<Payload>(mStrong[slot].getHandle()));
        mObjects[serial].tracked = false;
        _removeReference(serial);
    }

    void _untrackAll(size_t r)
    {
        std::vector<size_t> tracked;
        for (size_t serial = 0; serial < mObjects.size(); ++serial)
        {
            if (mObjects[serial].alive && mObjects[serial].tracked && mObjects[serial].registry == r)
            {
                tracked.push_back(serial);
            }
        }
        HandleTracker::untrackAll<Payload>(*mRegistries[r].registry);
        // Each untrack only lowers counts, so the order in which the registry walks its keys changes nothing.
        for (const size_t serial : tracked)
        {
            if (mObjects[serial].alive)
            {
                mObjects[serial].tracked = false;
                _removeReference(serial);
            }
        }
    }

    void _destroyObject(std::optional<size_t> serial, ObjectHandle handle)
    {
        if (!serial || !mRegistries[mObjects[*serial].registry].registry)
        {
            return;
        }
        // A dead object's handle is a quiet no-op.
        mRegistries[mObjects[*serial].registry].registry->destroyObject(handle);
        if (mObjects[*serial].alive)
        {
            _kill(*serial);
        }
    }

    // The old link is taken out before the new one goes in, and dropped last: its release may end the holder,
    // which must not happen in the middle of an assignment to the holder's own member.
    void _link(size_t holder, std::optional<size_t> targetSlot)
    {
        if (!_strongAlive(holder))
        {
            return;
        }
        Object& object = mObjects[*mStrongModel[holder]];
        StrongTypedObjectHandle<Payload> old = std::move(mStrong[holder]->link);
        const std::optional<size_t> oldLink = std::exchange(object.link, std::nullopt);
        if (targetSlot)
        {
            mStrong[holder]->link = mStrong[*targetSlot];
            object.link = mStrongModel[*targetSlot];
            if (object.link)
            {
                _addReference(*object.link);
            }
        }
        old = StrongTypedObjectHandle<Payload>();
        if (oldLink)
        {
            _removeReference(*oldLink);
        }
    }

    void _setScriptRef(size_t slot)
    {
        if (!_strongAlive(slot))
        {
            return;
        }
        Object& object = mObjects[*mStrongModel[slot]];
        mRegistries[object.registry].registry->setScriptRef(mStrong[slot].getHandle(),
                                                            std::make_unique<CountingRef>(object.refTold));
        object.hasScriptRef = true;
    }

    // Through the generic form and back: the count ends where it began, with one more and one fewer between.
    void _generic(size_t slot)
    {
        if (!_strongAlive(slot))
        {
            mExpectedAsserts.emplace_back(AS_GENERIC_INVALID);
            mExpectedAsserts.emplace_back(TO_GENERIC_INVALID);
            FUZZ_CHECK(!mStrong[slot].asGeneric().valid());
            FUZZ_CHECK(!StrongTypedObjectHandle<Payload>::toGeneric(std::move(mStrong[slot])).valid());
            return;
        }
        const size_t serial = *mStrongModel[slot];
        {
            const StrongObjectHandle copy = mStrong[slot].asGeneric();
            FUZZ_CHECK(copy.getHandle() == mObjects[serial].handle);
            _addReference(serial);
        }
        _removeReference(serial);
        StrongObjectHandle generic = StrongTypedObjectHandle<Payload>::toGeneric(std::move(mStrong[slot]));
        FUZZ_CHECK(mStrong[slot].getHandle().empty() && generic.getReferenceCount() == mObjects[serial].refs);
        WeakLifetimeScope scope = generic.getScope();
        mStrong[slot] = StrongTypedObjectHandle<Payload>(std::move(scope), generic.release(), false);
    }

    // ---- The checks ----

    // Every expected assert was raised, once, and nothing else but what a dying object's own handles may raise.
    void _checkAsserts(std::vector<std::string> asserts)
    {
        for (const std::string& expected : mExpectedAsserts)
        {
            const auto found = std::find(asserts.begin(), asserts.end(), expected);
            FUZZ_CHECK(found != asserts.end());
            asserts.erase(found);
        }
        for (const std::string& raised : asserts)
        {
            if (raised != REMOVING || !mMayAssertRemoving)
            {
                std::fprintf(stderr, "unexpected assert: %s\n", raised.c_str());
                FUZZ_CHECK(false);
            }
        }
        for (const size_t serial : mTouched)
        {
            _checkTold(serial);
        }
    }

    // Listeners hear of each object's birth once, and of its death once, when it has died.
    void _checkTold(size_t serial)
    {
        const Object& object = mObjects[serial];
        const Told told = mRegistries[object.registry].listener->told(object.handle);
        FUZZ_CHECK(told.created == 1);
        FUZZ_CHECK(told.destroyed == (object.alive ? 0u : 1u));
        if (object.hasScriptRef)
        {
            FUZZ_CHECK(object.refTold.raised == object.raised);
            FUZZ_CHECK(object.refTold.lowered == object.lowered ||
                       (object.loweredMayBeOneMore && object.refTold.lowered == object.lowered + 1));
            FUZZ_CHECK(object.refTold.destroyed == (object.alive ? 0u : 1u));
        }
    }

    void _check()
    {
        for (size_t slot = 0; slot < STRONG_SLOTS; ++slot)
        {
            const StrongTypedObjectHandle<Payload>& handle = mStrong[slot];
            const Object* object = _strongObject(slot);
            if (object == nullptr)
            {
                FUZZ_CHECK(handle.getHandle().empty() && handle.getLifetimeRegistry() == nullptr && !handle.valid());
                continue;
            }
            FUZZ_CHECK(handle.getHandle() == object->handle);
            FUZZ_CHECK(handle.valid() == object->alive);
            FUZZ_CHECK(handle.getReferenceCount() == (object->alive ? object->refs : 0u));
            if (object->alive)
            {
                FUZZ_CHECK(handle->serial == *mStrongModel[slot]);
                FUZZ_CHECK(handle->weakHandleFromThis() == WeakObjectHandle(handle.getScope(), handle.getHandle()));
            }
        }
        for (size_t slot = 0; slot < WEAK_SLOTS; ++slot)
        {
            const WeakObjectHandle& handle = mWeak[slot];
            if (!mWeakModel[slot])
            {
                FUZZ_CHECK(handle.empty() && !handle.valid());
                continue;
            }
            const Object& object = mObjects[*mWeakModel[slot]];
            FUZZ_CHECK(handle.getHandle() == object.handle);
            FUZZ_CHECK(handle.valid() == object.alive);
            FUZZ_CHECK(handle.empty() == !mRegistries[object.registry].registry);
            FUZZ_CHECK(handle.tryCast<Payload>().valid() == object.alive);
        }
        for (size_t r = 0; r < mRegistries.size(); ++r)
        {
            const Registry& registry = mRegistries[r];
            FUZZ_CHECK(registry.scope.valid() == (registry.registry != nullptr));
            if (!registry.registry)
            {
                continue;
            }
            FUZZ_CHECK(mManager.getRegistry(registry.registry->getContextId()) == registry.registry.get());
            size_t tracked = 0;
            for (const Object& object : mObjects)
            {
                tracked += object.alive && object.tracked && object.registry == r ? 1 : 0;
            }
            FUZZ_CHECK(HandleTracker::getTrackedHandleCount<Payload>(*registry.registry) == tracked);
        }
    }

    // Declared first: the manager outlives every registry, scope and handle.
    RegistryManager mManager;
    std::deque<Object> mObjects;
    std::vector<Registry> mRegistries;
    std::array<StrongTypedObjectHandle<Payload>, STRONG_SLOTS> mStrong;
    std::array<std::optional<size_t>, STRONG_SLOTS> mStrongModel;
    std::array<WeakObjectHandle, WEAK_SLOTS> mWeak;
    std::array<std::optional<size_t>, WEAK_SLOTS> mWeakModel;

    std::vector<std::string> mExpectedAsserts;
    bool mMayAssertRemoving = false;
    // Objects whose model changed in this step: what they were told is checked after it.
    std::vector<size_t> mTouched;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fuzz::Input input(data, size);
    World world;
    for (size_t steps = 0; !input.exhausted() && steps < 2000; ++steps)
    {
        world.step(input);
    }
    world.finish();
    return 0;
}
