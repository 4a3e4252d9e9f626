-- expect: ok 3
local p = Promise.new()
local got
p:next(function(v) return v + 1 end):next(function(v) got = v + 1 end)
p:resolve(1)
return got
