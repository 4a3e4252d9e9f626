-- expect: error "watchdog"
-- The stop unwinds through a pending to-be-closed value whose __close loops too.
local guard <close> = setmetatable({}, {__close = function() while true do end end})
while true do end
