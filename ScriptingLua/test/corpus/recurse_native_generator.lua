-- expect: error any
local zoo = require('@test/zoo')
local function f() return zoo.sumGenerator(coroutine.create(function() coroutine.yield(f()) end)) end
return f()
