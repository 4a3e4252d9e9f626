-- expect: error "destroyed by native code"
local zoo = require('@test/zoo')
local c = zoo.Counter(1)
zoo.destroy(c)
return c.value
