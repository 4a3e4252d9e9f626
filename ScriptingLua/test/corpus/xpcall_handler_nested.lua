-- expect: error "watchdog"
return xpcall(function()
  return xpcall(function() error("inner") end, function() while true do end end)
end, function() while true do end end)
