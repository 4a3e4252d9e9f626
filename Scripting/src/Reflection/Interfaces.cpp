#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/IProperty.h"

namespace Scripting::Reflection
{
// Out of line so that each interface has one home for its vtable.
IFunction::~IFunction() = default;
IPropertyGetter::~IPropertyGetter() = default;
IPropertySetter::~IPropertySetter() = default;
} // namespace Scripting::Reflection
