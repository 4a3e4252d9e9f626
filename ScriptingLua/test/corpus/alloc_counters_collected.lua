-- expect: ok
local zoo = require('@test/zoo')
for i = 1, 2e3 do local c = zoo.Counter(i) end
collectgarbage()
return true
