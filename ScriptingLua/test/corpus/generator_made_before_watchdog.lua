-- watchdog: late
-- expect: ok
gen = coroutine.create(function() coroutine.yield(1) while true do end end)
--- next run ---
-- expect: error "watchdog"
local zoo = require("@test/zoo")
return zoo.sumGenerator(gen)
