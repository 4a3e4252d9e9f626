-- expect: error "watchdog"
local zoo = require('@test/zoo')
return zoo.callTwice(function(v) while true do end end, 1)
