-- expect: ok 12
local zoo = require('@test/zoo')
return zoo.callTwice(function(v) return v * 2 end, 3)
