-- expect: error "watchdog"
do
  local guard <close> = setmetatable({}, {__close = function() while true do end end})
end
