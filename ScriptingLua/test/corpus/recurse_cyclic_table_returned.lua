-- expect: ok
local t = {}
t[1] = t
t.self = t
return t
