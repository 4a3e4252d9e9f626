-- expect: ok
local zoo = require("@test/zoo")
zoo.Counter = nil
return require("@test/zoo").Counter == nil
