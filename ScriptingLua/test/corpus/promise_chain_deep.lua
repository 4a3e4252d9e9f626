-- expect: ok 500
-- A long chain: each continuation settles the next promise.
local first = Promise.new()
local p = first
for i = 1, 500 do p = p:next(function(v) return v + 1 end) end
first:resolve(0)
local got
p:next(function(v) got = v end)
return got
