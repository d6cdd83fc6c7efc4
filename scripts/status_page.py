#!/usr/bin/env python3
"""Prints the page of a development service as an account sees it.

usage: status_page.py ADDRESS USER <password
"""

import http.cookiejar
import sys
import urllib.error
import urllib.parse
import urllib.request

address, user = sys.argv[1:]
password = sys.stdin.readline().rstrip("\n")
form = urllib.parse.urlencode({"user": user, "password": password}).encode()
browser = urllib.request.build_opener(urllib.request.HTTPCookieProcessor(http.cookiejar.CookieJar()))
try:
    # The answer leads to the page.
    sys.stdout.write(browser.open(address.rstrip("/") + "/sign-in", form).read().decode())
except urllib.error.HTTPError as refusal:
    sys.exit(f"The sign-in was answered with {refusal.code}.")
