#include "Scripting/Reflection/ValueAdapters.h"

#include <atomic>
#include <mutex>
#include <unordered_map>

namespace Scripting::Reflection
{
namespace
{
// Readers are the conversions of running scripts, which look for an adapter on every value that is not a primitive,
// and must not wait for a module being bound on another thread. A registration therefore publishes a new table
// with the new adapter in it; earlier tables stay, since a reader may still hold one. Registrations happen once
// per container type of the program.
struct AdapterTable
{
    std::unordered_map<entt::id_type, SequenceAdapter> sequences;
    std::unordered_map<entt::id_type, OptionalAdapter> optionals;
    const AdapterTable* previous = nullptr;
};

constinit std::atomic<const AdapterTable*> sCurrent{nullptr};
constinit std::mutex sWriting;

// Frees every table when the program ends, or when the module that carries this library is unloaded: no script
// converts anything then, and a module's statics are unmapped with it, so kept tables would be lost, not kept.
struct TablesOwner
{
    TablesOwner() = default;
    TablesOwner(const TablesOwner&) = delete;
    TablesOwner& operator=(const TablesOwner&) = delete;
    ~TablesOwner()
    {
        const AdapterTable* table = sCurrent.exchange(nullptr, std::memory_order_acq_rel);
        while (table != nullptr)
        {
            const AdapterTable* previous = table->previous;
            delete table;
            table = previous;
        }
    }
};
const TablesOwner sTablesOwner;

template <typename Adapter, typename Member>
void publish(entt::id_type type, const Adapter& adapter, Member member)
{
    const std::lock_guard<std::mutex> held{sWriting};
    const AdapterTable* current = sCurrent.load(std::memory_order_relaxed);
    if (current != nullptr && (current->*member).contains(type))
    {
        return;
    }
    // Kept until the end: reachable from sCurrent through `previous`, for readers that loaded an older table.
    auto* next = current != nullptr ? new AdapterTable(*current) : new AdapterTable();
    next->previous = current;
    (next->*member).emplace(type, adapter);
    sCurrent.store(next, std::memory_order_release);
}

template <typename Adapter, typename Member>
const Adapter* find(const entt::meta_type& type, Member member)
{
    const AdapterTable* current = sCurrent.load(std::memory_order_acquire);
    if (current == nullptr)
    {
        return nullptr;
    }
    const auto& adapters = current->*member;
    const auto found = adapters.find(type.info().hash());
    return found != adapters.end() ? &found->second : nullptr;
}
} // namespace

const SequenceAdapter* findSequenceAdapter(const entt::meta_type& type)
{
    return find<SequenceAdapter>(type, &AdapterTable::sequences);
}

const OptionalAdapter* findOptionalAdapter(const entt::meta_type& type)
{
    return find<OptionalAdapter>(type, &AdapterTable::optionals);
}

namespace internal
{
void addSequenceAdapter(entt::id_type type, const SequenceAdapter& adapter)
{
    publish(type, adapter, &AdapterTable::sequences);
}

void addOptionalAdapter(entt::id_type type, const OptionalAdapter& adapter)
{
    publish(type, adapter, &AdapterTable::optionals);
}
} // namespace internal
} // namespace Scripting::Reflection
