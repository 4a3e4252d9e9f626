-- expect: ok 7
local ok, e = pcall(error, {code = 7})
return e.code
