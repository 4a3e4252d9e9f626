-- expect: ok
local t = {}
for i = 1, 5e4 do t = {t} end
return t
