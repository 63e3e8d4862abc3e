@echo off
rem Shows what the virtual camera shows, in a window.
cd /d "%~dp0"
start camera_probe.exe --watch
