-- expect: ok
local zoo = require('@test/zoo')
local c = zoo.Counter(1)
local d = c
zoo.destroy(c)
print(c)
return c == d and type(tostring(c)) == "string"
