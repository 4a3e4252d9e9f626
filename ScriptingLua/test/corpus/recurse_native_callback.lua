-- expect: error any
local zoo = require('@test/zoo')
local function f(v) return zoo.callTwice(f, v) end
return f(1)
