[playlist]
NumberOfEntries=1
File1=sim://radio/zuvo-radio-128k.mp3?zuvo-duration=30000
Title1=Radio Zuvo (128k)
Length1=-1
Version=2
