-- expect: error "watchdog"
local zoo = require('@test/zoo')
return zoo.callTwice(function(v) while true do pcall(error) end end, 1)
