-- expect: ok 4
local zoo = require('@test/zoo')
local c = zoo.Counter(1)
return zoo.callTwice(function(v) if c then zoo.destroy(c) c = nil end return v * 2 end, 1)
