-- expect: ok
for k in pairs(_G) do if k ~= "_G" then _G[k] = nil end end
return true
