-- A parent script (used by objects.ls): a playlist that steps through its clips and wraps.
property clips, position, name

on new me, title
  name = title
  clips = []
  position = 0
  return me
end

on addClip me, clip
  add(clips, clip)
  return me
end

on nextClip me
  if count(clips) = 0 then return VOID
  position = position + 1
  if position > count(clips) then position = 1
  return clips[position]
end

on describe me
  return name & ":" && count(clips) && "clips, at" && position
end
