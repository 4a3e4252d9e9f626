-- expect: error "watchdog"
local zoo = require('@test/zoo')
return xpcall(function() zoo.fail(3) end, function() while true do end end)
