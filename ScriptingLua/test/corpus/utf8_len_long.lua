-- expect: ok 500000
return utf8.len(string.rep("\u{4F60}", 5e5))
