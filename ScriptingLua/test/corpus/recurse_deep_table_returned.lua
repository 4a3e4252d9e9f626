-- expect: ok
local t = {}
for i = 1, 2e4 do t = {t} end
return t
