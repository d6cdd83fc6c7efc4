"""Looks at the page of a development service in a real browser.

usage: page_in_browser.py CHECK ADDRESS USER TOKEN <password

The account has backed up from a machine with an odd name. TOKEN is good for monitoring events, by
which a check makes the page change. Each check ends with the first thing that is not as promised.
"""

import os
import sys
import urllib.request
from xml.sax.saxutils import escape

from browser import Browsing

CHECK, ADDRESS, USER, TOKEN = sys.argv[1:]
PASSWORD = sys.stdin.readline().rstrip("\n")
KEY_TAB = "Tab"

# Of every element that shows text of its own: contrast by WCAG 2.1, and whether it leaves the window.
LOOK = """(() => {
  const light = color => {
    const [r, g, b] = color.match(/[\\d.]+/g).map(Number).map(v => v / 255)
      .map(v => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const groundOf = element => {
    while (element && getComputedStyle(element).backgroundColor === "rgba(0, 0, 0, 0)") element = element.parentElement;
    return element ? getComputedStyle(element).backgroundColor : "rgb(255, 255, 255)";
  };
  let contrast = 21, worst = "", outside = [];
  for (const element of document.body.querySelectorAll("*")) {
    if (element.closest("script, .skip, thead") || !element.checkVisibility()) continue;
    const box = element.getBoundingClientRect();
    if (box.right > innerWidth + 0.5 || box.left < -0.5) outside.push(element.outerHTML.slice(0, 80));
    if (![...element.childNodes].some(node => node.nodeType === 3 && node.nodeValue.trim())) continue;
    const pair = [light(getComputedStyle(element).color), light(groundOf(element))];
    const of = (Math.max(...pair) + 0.05) / (Math.min(...pair) + 0.05);
    if (of < contrast) { contrast = of; worst = element.outerHTML.slice(0, 120); }
  }
  return {width: document.documentElement.scrollWidth, contrast, worst, outside,
          dark: light(groundOf(document.body)) < 0.2, text: document.body.innerText};
})()"""


def expect(condition, what):
    if not condition:
        sys.exit(f"not as promised: {what}")


def send_event(kind):
    body = (f'<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body><LogEvent '
            f'xmlns="http://stowline.example/monitoring"><eventType>{escape(kind)}</eventType>'
            f"<userName>{escape(USER)}</userName><authToken>{escape(TOKEN)}</authToken>"
            f"<systemName>iMac</systemName></LogEvent></s:Body></s:Envelope>")
    request = urllib.request.Request(ADDRESS + "/MonitoringService.asmx", body.encode(),
                                     {"Content-Type": "text/xml; charset=utf-8",
                                      "SOAPAction": '"http://stowline.example/monitoring/LogEvent"'})
    expect(b"Success" in urllib.request.urlopen(request).read(), "an event is taken")


def refresh_now(browser):
    browser.run("void document.dispatchEvent(new Event('visibilitychange'))")


def look(browser):
    """At 360 pixels and 1200, light and dark: nothing beside the window, and all can be read."""
    def see(what, inside):
        for width in (360, 1200):
            for dark in (False, True):
                browser.look_as(width, dark)
                seen = browser.run(LOOK)
                where = f"{what}, {width} pixels, {'dark' if dark else 'light'}"
                expect(seen["width"] <= width, f"{where}: no scrolling sideways, but {seen['width']} are needed")
                expect(not seen["outside"], f"{where}: all inside, but {seen['outside'][:3]}")
                expect(seen["contrast"] >= 4.5, f"{where}: contrast {seen['contrast']} of {seen['worst']}")
                expect(seen["dark"] == dark, where)
                expect(inside in seen["text"], f"{where}: {inside} is shown")

    browser.open(ADDRESS + "/")
    see("the sign-in", "User name")
    browser.sign_in(ADDRESS, USER, PASSWORD)
    browser.run("document.querySelectorAll('details').forEach(each => each.open = true)")
    see("the overview", "<script>document.title")
    expect(browser.run("document.title") == "Stowline development service", "no name is run as a script")
    for reduced, behaviour in ((False, "smooth"), (True, "auto")):
        browser.look_as(1200, reduced=reduced)
        expect(browser.run("getComputedStyle(document.documentElement).scrollBehavior") == behaviour,
               f"movement where reduced is {reduced}")


FOCUSED = """(() => {
  const at = document.activeElement, style = getComputedStyle(at), box = at.getBoundingClientRect();
  return {name: at.id || at.textContent.trim().slice(0, 40), tag: at.tagName,
          seen: style.outlineStyle !== "none" && parseFloat(style.outlineWidth) >= 2 && box.width > 0 && box.left >= 0,
          place: [...document.querySelectorAll("*")].indexOf(at)};
})()"""


def keyboard(browser):
    """Everything by keys alone, in the order in which it stands, and one sees where one is."""
    browser.look_as(1200)
    browser.sign_in(ADDRESS, USER, PASSWORD)
    expect(browser.run("!!document.querySelector('main table')"), "one signs in by keyboard")
    browser.press(KEY_TAB)
    first = browser.run(FOCUSED)
    expect(first["name"] == "Skip to the overview" and first["seen"], f"the skip link comes first, not {first}")
    browser.press("Enter", text="\r")
    browser.until("document.activeElement.id === 'content'")
    browser.open(ADDRESS + "/")
    places, names = [], []
    count = browser.run("document.querySelectorAll('a[href], button, input, summary').length")
    for _ in range(count):
        browser.press(KEY_TAB)
        at = browser.run(FOCUSED)
        expect(at["seen"], f"the focus can be seen on {at}")
        places.append(at["place"])
        names.append(at["name"])
    expect(places == sorted(places) and len(set(places)) == count, f"the order of {names}")
    for name in ("Sign out", "reload", "pause", "Machines", "The numbers of the plot"):
        expect(name in names, f"{name} is reached: {names}")
    browser.open(ADDRESS + "/")
    browser.press(KEY_TAB)
    browser.press(KEY_TAB)
    expect(browser.run(FOCUSED)["name"] == "Sign out", "signing out is near")
    browser.forget()
    browser.press("Enter", text="\r")
    browser.await_event("Page.loadEventFired")
    browser.until("document.activeElement.id === 'user'")  # one is at the sign-in
    expect(browser.run("fetch('/overview').then(answer => answer.status)") == 403, "and nothing is told")


def reader(browser):
    """What a screen reader is told, as a table also where it does not look like one."""
    browser.call("Accessibility.enable")
    browser.sign_in(ADDRESS, USER, PASSWORD)
    for width in (360, 1200):
        browser.look_as(width)
        nodes = [(node["role"]["value"], node.get("name", {}).get("value", ""), node)
                 for node in browser.call("Accessibility.getFullAXTree")["nodes"] if not node["ignored"]]
        roles = [role for role, _, _ in nodes]
        for role, name in (("banner", ""), ("navigation", "Sections"), ("main", ""), ("status", ""),
                           ("region", "Machines"), ("region", "Failures"), ("table", "Machines"),
                           ("table", "Runs"), ("table", "Space"), ("columnheader", "Machine"),
                           ("columnheader", "Last run without failures (UTC)"), ("rowheader", "iMac"),
                           ("cell", "finished"), ("button", "Sign out")):
            expect(any(has == role and (named == name or not name) for has, named, _ in nodes),
                   f"{width} pixels: {role} {name}; of its kind are {[n for r, n, _ in nodes if r == role]}")
        expect(roles.count("heading") == 1 + browser.run("document.querySelectorAll('h2').length"), "headings")
        pictures = [name for role, name, _ in nodes if role in ("image", "img", "graphics-document")]
        expect(pictures and all(USER + ": " in name and "now" in name for name in pictures),
               f"the plot in words: {pictures}")
        for _, _, node in (entry for entry in nodes if entry[0] == "status"):
            live = {one["name"]: one["value"].get("value") for one in node["properties"]}
            expect(live.get("live") == "polite", f"news wait for their turn: {live}")
        expect(browser.run("[...document.querySelectorAll('th')].every(each => each.scope)"), "headings have a scope")


def refresh(browser):
    """What changed is put in; focus, selection, place and what was opened stay."""
    send_event("Earlier")
    browser.look_as(360)
    browser.sign_in(ADDRESS, USER, PASSWORD)
    browser.run("""(() => {
      document.documentElement.style.scrollBehavior = "auto";
      window.said = 0;
      new MutationObserver(() => ++said).observe(document.getElementById("news"), {childList: true});
      document.querySelector("details").open = true;
      document.querySelector("summary").focus({preventScroll: true});
      window.row = [...document.querySelectorAll("#events tbody tr")].find(row => row.textContent.includes("Earlier"));
      row.scrollIntoView();
      const words = document.createTreeWalker(row.querySelector("th"), NodeFilter.SHOW_TEXT).nextNode();
      getSelection().setBaseAndExtent(words, 1, words, 5);
      window.top0 = row.getBoundingClientRect().top;
    })()""")
    for kind in (f"Later{os.getpid()}WithErrors", f"Last{os.getpid()}WithErrors"):
        send_event(kind)
        refresh_now(browser)
        browser.until(f"document.querySelector('#events').textContent.includes('{kind}')")
        browser.until("Math.abs(row.getBoundingClientRect().top - top0) < 2") # once it is laid out
        state = browser.run("""({selected: getSelection().toString(), focus: document.activeElement.tagName,
          open: document.querySelector("details").open, same: row.isConnected, said,
          first: document.querySelector("#events tbody tr").textContent,
          failures: document.querySelector("#failures").textContent, scrolled: scrollY})""")
        expect(state["selected"] == "arli", f"the selection stays: {state}")
        expect(state["focus"] == "SUMMARY" and state["open"], f"focus and what was opened stay: {state}")
        expect(state["same"] and state["scrolled"] > 0, f"rows and place stay: {state}")
        expect(kind in state["first"] and kind in state["failures"], f"what is new is there: {state}")
        expect(state["said"] <= 1, f"it is said once a minute at most: {state}")
    expect("#" not in browser.run("location.href"), "the address stays")


def away(browser):
    """A page that is not up to date says so, and what it shows is of when it says."""
    browser.sign_in(ADDRESS, USER, PASSWORD)
    refresh_now(browser)
    conditions = {"latency": 0, "downloadThroughput": -1, "uploadThroughput": -1}
    browser.call("Network.emulateNetworkConditions", offline=True, **conditions)
    refresh_now(browser)
    browser.until("document.getElementById('news').textContent.startsWith('Not up to date')")
    for _ in range(3):  # an answer may still have been on its way
        before = browser.run("document.getElementById('as-of').textContent")
        refresh_now(browser)
        after = browser.run("document.getElementById('as-of').textContent")
        if after == before:
            break
    expect(after == before, "as of when it was seen")
    send_event("Meanwhile")
    refresh_now(browser)
    browser.call("Network.emulateNetworkConditions", offline=False, **conditions)
    refresh_now(browser)
    browser.until("document.querySelector('#events').textContent.includes('Meanwhile')")
    browser.until("document.getElementById('news').textContent === 'The service answers again.'")
    # Paused, nothing is asked; and then again.
    browser.run("document.getElementById('pause').click()")
    expect(browser.run("document.getElementById('pause').getAttribute('aria-pressed')") == "true", "it is paused")
    send_event("Paused")
    browser.forget()
    refresh_now(browser)
    browser.run("fetch('/no-such-place')")
    asked = [event["params"]["request"]["url"] for event in browser.events
             if event.get("method") == "Network.requestWillBeSent"]
    expect(not any(url.endswith("/overview") for url in asked), f"nothing is asked while paused: {asked}")
    browser.run("document.getElementById('pause').click()")
    browser.until("document.querySelector('#events').textContent.includes('Paused')")


def ended(browser):
    """A session that is over takes its figures with it."""
    browser.sign_in(ADDRESS, USER, PASSWORD)
    browser.until("document.body.textContent.includes('iMac')")
    cookie = browser.call("Network.getCookies", urls=[ADDRESS + "/"])["cookies"]
    expect(len(cookie) == 1 and cookie[0]["httpOnly"] and cookie[0]["sameSite"] == "Strict", f"the cookie {cookie}")
    expect(browser.run("document.cookie") == "", "no script reads the cookie")
    browser.call("Network.clearBrowserCookies")
    browser.forget()
    refresh_now(browser)
    browser.await_event("Page.loadEventFired")
    browser.until("!!document.getElementById('user')")
    expect("iMac" not in browser.run("document.body.textContent"), "nothing is left on the page")


def plain(browser):
    """Without script: one signs in, reads, loads it again, and leaves."""
    browser.call("Emulation.setScriptExecutionDisabled", value=True)
    browser.open(ADDRESS + "/")
    browser.type(USER)  # the field has the focus
    browser.press(KEY_TAB)
    browser.type(PASSWORD)
    browser.forget()
    browser.press("Enter", text="\r")
    browser.await_event("Page.loadEventFired")

    def shown():
        root = browser.call("DOM.getDocument")["root"]["nodeId"]
        main = browser.call("DOM.querySelector", nodeId=root, selector="body")["nodeId"]
        return browser.call("DOM.getOuterHTML", nodeId=main)["outerHTML"]

    expect("<bdi>iMac</bdi>" in shown(), "the overview needs no script")
    expect('aria-pressed="false" hidden' in shown(), "what needs a script is not offered")
    send_event("Plainly")
    browser.forget()
    for _ in range(3):  # past the skip link and signing out, to loading again
        browser.press(KEY_TAB)
    browser.press("Enter", text="\r")
    browser.await_event("Page.loadEventFired")
    expect("Plainly" in shown(), "it can be loaded again")


def policy(browser):
    """Only the page's own script runs, and it alone talks, to the service alone."""
    browser.sign_in(ADDRESS, USER, PASSWORD)
    refresh_now(browser)
    browser.run("fetch('/overview').then(answer => answer.text())")
    complaints = [event["params"] for event in browser.events
                  if event.get("method") in ("Log.entryAdded", "Runtime.exceptionThrown") and
                  "favicon" not in str(event)]
    expect(not complaints, f"the page itself is as its policy wants: {complaints}")
    violated = browser.run("""new Promise(done => {
      const seen = new Set();
      document.addEventListener("securitypolicyviolation", event => {
        seen.add(event.effectiveDirective);
        if (seen.size === 4) done([...seen].sort());
      });
      const put = (name, fields) => document.body.append(Object.assign(document.createElement(name), fields));
      put("script", {textContent: "document.title = 'owned'"});
      put("img", {src: "/x.png"});
      put("style", {textContent: "body { display: none }"});
      fetch("http://127.0.0.1:9/").catch(() => 0);
      setTimeout(() => done([...seen].sort()), 20000); // what is missing is told
    })""")
    expect(violated == ["connect-src", "img-src", "script-src-elem", "style-src-elem"], f"all is refused: {violated}")
    expect(browser.run("document.title") == "Stowline development service", "a script without the nonce does not run")


with Browsing() as at_work:
    {check.__name__: check for check in (look, keyboard, reader, refresh, away, ended, plain, policy)}[CHECK](at_work)
print("as promised")
