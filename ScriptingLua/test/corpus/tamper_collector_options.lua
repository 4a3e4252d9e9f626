-- expect: ok 0
local refused = 0
for _, option in ipairs({"stop", "restart", "incremental", "generational", "setpause", "setstepmul"}) do
  if not pcall(collectgarbage, option) then refused = refused + 1 end
end
return 6 - refused
