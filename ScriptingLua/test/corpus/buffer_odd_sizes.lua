-- expect: ok 0
local made = 0
for _, n in ipairs({-1, 0/0, math.huge, 2^63, math.mininteger}) do
  if pcall(Buffer.new, n) then made = made + 1 end
end
return made
