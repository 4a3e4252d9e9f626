-- expect: error any
local zoo = require('@test/zoo')
local c = zoo.Counter(1)
return zoo.sumGenerator(coroutine.create(function() coroutine.yield(1) zoo.destroy(c) coroutine.yield(c.value) end))
