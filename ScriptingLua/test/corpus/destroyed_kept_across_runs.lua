-- expect: ok
local zoo = require("@test/zoo")
kept = zoo.Counter(3)
zoo.destroy(kept)
--- next run ---
-- expect: error "destroyed by native code"
return kept.value
