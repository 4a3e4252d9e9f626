-- expect: error "watchdog"
local zoo = require('@test/zoo')
return zoo.sumGenerator(coroutine.create(function() while true do end end))
