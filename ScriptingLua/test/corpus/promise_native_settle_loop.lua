-- expect: error "watchdog"
local zoo = require('@test/zoo')
local p = Promise.new()
p:next(function() while true do end end)
return zoo.resolveWith(p, 1)
