-- expect: error "yield across"
local zoo = require('@test/zoo')
return coroutine.wrap(function()
  return zoo.callTwice(function(v) coroutine.yield(v) return v end, 1)
end)()
