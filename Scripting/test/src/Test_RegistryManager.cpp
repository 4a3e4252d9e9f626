#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <memory>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace
{
constexpr size_t MAX_REGISTRIES = RegistryManager::MAX_NUMBER_IDS;

std::vector<std::shared_ptr<LifetimeRegistry>> createRegistries(RegistryManager& manager, size_t count)
{
    std::vector<std::shared_ptr<LifetimeRegistry>> registries;
    for (size_t i = 0; i < count; ++i)
    {
        registries.emplace_back(manager.createLifetimeRegistry());
    }
    return registries;
}

bool allCreated(const std::vector<std::shared_ptr<LifetimeRegistry>>& registries)
{
    for (const auto& registry : registries)
    {
        if (registry == nullptr)
        {
            return false;
        }
    }
    return true;
}
} // namespace

ZUT_TEST_CLASS(Scripting_RegistryManagerTests);
class Scripting_RegistryManagerTests final : public Scripting_RegistryManagerTestsBase
{
    ZUT_TEST(CreateRegistry_GetRegistry_Success)
    {
        RegistryManager manager;
        const std::unique_ptr<LifetimeRegistry> registry = manager.createLifetimeRegistry();
        Assert::IsTrue(registry != nullptr, true);
        Assert::AreEqual(registry->getContextId().value, uint8_t{1});
        Assert::AreEqual(manager.getRegistryCount(), static_cast<unsigned char>(1));
        Assert::IsTrue(manager.getRegistry(registry->getContextId()) == registry.get());
    }

    ZUT_TEST(CreateRegistry_ReleaseRegistry_GetReturnsNullptr)
    {
        RegistryManager manager;
        std::unique_ptr<LifetimeRegistry> registry = manager.createLifetimeRegistry();
        Assert::IsTrue(registry != nullptr, true);
        const ContextId id = registry->getContextId();
        registry.reset();
        Assert::IsTrue(manager.getRegistry(id) == nullptr);
        Assert::AreEqual(manager.getRegistryCount(), static_cast<unsigned char>(0));
    }

    ZUT_TEST(CreateMaxRegistries_AskForOneMore_Fail)
    {
        RegistryManager manager;
        const auto registries = createRegistries(manager, MAX_REGISTRIES);
        Assert::IsTrue(allCreated(registries), true);
        Assert::IsTrue(manager.createLifetimeRegistry() == nullptr, false, "The 256th registry is refused");
        Assert::AreEqual(manager.getRegistryCount(), static_cast<unsigned char>(255));
    }

    ZUT_TEST(CreateMaxRegistries_AskForOneMoreFail_ReleaseOne_AskAgain_Success)
    {
        RegistryManager manager;
        auto registries = createRegistries(manager, MAX_REGISTRIES);
        Assert::IsTrue(allCreated(registries), true);
        Assert::IsTrue(manager.createLifetimeRegistry() == nullptr);

        const ContextId released = registries[100]->getContextId();
        registries[100].reset();
        Assert::AreEqual(manager.getRegistryCount(), static_cast<unsigned char>(254));
        registries[100] = manager.createLifetimeRegistry();
        Assert::IsTrue(registries[100] != nullptr, true);
        Assert::AreEqual(registries[100]->getContextId().value, released.value, false, "The freed id is reused");
        Assert::AreEqual(manager.getRegistryCount(), static_cast<unsigned char>(255));
    }

    ZUT_TEST(CreateMaxRegistries_FreeHalfForSparseSet_CreateMore_IdsReusedAndSizeIsMaintained)
    {
        RegistryManager manager;
        auto registries = createRegistries(manager, MAX_REGISTRIES);
        Assert::IsTrue(allCreated(registries), true);

        size_t destroyed = 0;
        for (size_t position = 0; position < registries.size(); position += 2)
        {
            registries[position].reset();
            ++destroyed;
        }
        Assert::AreEqual(static_cast<size_t>(manager.getRegistryCount()), MAX_REGISTRIES - destroyed);

        for (size_t i = 0; i < destroyed; ++i)
        {
            std::shared_ptr<LifetimeRegistry> created = manager.createLifetimeRegistry();
            Assert::IsTrue(created != nullptr, true, "Request {} of {} for a freed id", i + 1, destroyed);
            // Only freed ids are left, and they were the odd ones: slot 0, 2, 4... hold ids 1, 3, 5...
            Assert::AreEqual(created->getContextId().value % 2, 1);
            registries.push_back(std::move(created));
        }
        Assert::AreEqual(static_cast<size_t>(manager.getRegistryCount()), MAX_REGISTRIES);
        Assert::IsTrue(manager.createLifetimeRegistry() == nullptr);
    }

    ZUT_TEST(CreateRegistries_FreeFirstHalf_CreateNewId_LastReleasedIsFirstReused)
    {
        RegistryManager manager;
        auto registries = createRegistries(manager, 6);
        Assert::IsTrue(allCreated(registries), true);
        const ContextId third = registries[2]->getContextId();
        registries[0].reset();
        registries[1].reset();
        registries[2].reset();

        const std::unique_ptr<LifetimeRegistry> reused = manager.createLifetimeRegistry();
        Assert::IsTrue(reused != nullptr, true);
        Assert::AreEqual(reused->getContextId().value, third.value);
    }

    ZUT_TEST(CreateRegistry_MakeHandles_ReleaseRegistry_HandlesInvalid)
    {
        RegistryManager manager;
        std::unique_ptr<LifetimeRegistry> registry = manager.createLifetimeRegistry();
        Assert::IsTrue(registry != nullptr, true);
        Assert::AreEqual(registry->getContextId().value, uint8_t{1});

        const StrongTypedObjectHandle<int> handle = registry->getScope().makeObject<int>(1);
        Assert::IsTrue(handle.valid());
        registry->destroyLifetimeScope(false);
        registry.reset();
        Assert::IsFalse(handle.valid());
        Assert::IsTrue(handle.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(handle.getReferenceCount(), 0u);
        // The handle's destructor runs at the end of the case, after its registry's death.
    }

    ZUT_TEST(CreateRegistry_MakeHandles_ReleaseRegistry_MakeNewRegistryWithSameContextId_OldHandlesInvalid)
    {
        RegistryManager manager;
        std::unique_ptr<LifetimeRegistry> registry = manager.createLifetimeRegistry();
        Assert::IsTrue(registry != nullptr, true);
        const StrongTypedObjectHandle<int> oldHandle = registry->getScope().makeObject<int>(1);
        registry->destroyLifetimeScope(false);
        registry.reset();

        const std::unique_ptr<LifetimeRegistry> successor = manager.createLifetimeRegistry();
        Assert::IsTrue(successor != nullptr, true);
        Assert::AreEqual(successor->getContextId().value, uint8_t{1});
        const StrongTypedObjectHandle<int> newHandle = successor->getScope().makeObject<int>(2);
        Assert::IsTrue(newHandle.valid());
        // Same slot, same entity id: only the generation tells the two registries apart.
        Assert::AreEqual(static_cast<uint64_t>(newHandle.getHandle().value) & 0xFFFFFFFFull,
                         static_cast<uint64_t>(oldHandle.getHandle().value) & 0xFFFFFFFFull);
        Assert::IsFalse(oldHandle.valid());
        Assert::IsTrue(oldHandle.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(oldHandle.getReferenceCount(), 0u);
        Assert::AreEqual(newHandle.getReferenceCount(), 1u);
    }

    ZUT_TEST(CreateLifetimeRegistry_MakeHandles_ReleaseLiftimeRegistry_HandlesInvalid)
    {
        LifetimeRegistryReference reference;
        auto registry = std::make_unique<LifetimeRegistry>(ContextId{1}, reference);
        const WeakLifetimeScope scope(&reference);
        const StrongTypedObjectHandle<int> first = scope.makeObject<int>(1);
        const StrongTypedObjectHandle<int> second = scope.makeObject<int>(2);
        Assert::IsTrue(first.valid());
        Assert::IsTrue(second.valid());
        registry->destroyLifetimeScope(false);
        registry.reset();
        Assert::IsFalse(first.valid());
        Assert::IsFalse(second.valid());
        Assert::IsTrue(scope.empty());
    }
};
