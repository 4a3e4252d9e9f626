-- expect: ok 1000
local zoo = require('@test/zoo')
-- An endless generator: the native walk takes a thousand steps.
return zoo.sumGenerator(coroutine.create(function() while true do coroutine.yield(1) end end))
