// Walks through the console in Chromium, as one of the tests of browser_test.cpp. Each throws when something is not as it
// should be.
//   node walk.js TASK ADDRESS [FOLDER-FOR-SCREENSHOTS | PATH | ROUTES]
"use strict";
const assert = require("assert");
const fs = require("fs");
const { chromium } = require("playwright-core");

const [task, address, extra] = process.argv.slice(2);
const profile = "/profiles/user1/from0";
const pages = {
  login: "/login", first: "/first?code=x", overview: "/", none: "/?search=nothing-has-this", profile,
  address: profile + "/to/forwardto0", "remove-address": profile + "/to/forwardto0/remove", "new-address": profile + "/add",
  settings: profile + "/settings", log: profile + "/log", held: "/held", "held-mail": "/held/user1/from0/1",
  drop: "/held/user1/from0/1/drop", mails: "/mails", mail: "/mails/M1", history: "/history", account: "/account", users: "/users",
  user: "/users/user1", "new-profile": "/users/user1/profiles", rules: "/rules", rule: "/rules/endofdata",
  servers: "/servers", alerts: "/alerts", "remove-user": "/users/user1/remove", "remove-profile": profile + "/remove",
  missing: "/profiles/user9/from9",
};
const looks = {
  "wide-light-en": { viewport: { width: 1200, height: 800 }, locale: "en-US", colorScheme: "light" },
  "phone-dark-ja": { viewport: { width: 360, height: 740 }, locale: "ja-JP", colorScheme: "dark", isMobile: true, hasTouch: true },
};

let complaints = [];

// A page whose console is watched: a word about the policy, or any error, is a complaint.
async function open(browser, look) {
  const context = await browser.newContext(look);
  context.setDefaultTimeout(60000);
  const page = await context.newPage();
  page.on("console", (message) => {
    const isPolicy = /Content.Security.Policy/i.test(message.text());
    const isStatus = /status of 4/.test(message.text());  // a page that says 404 or 422
    if (isPolicy || (message.type() === "error" && !isStatus)) complaints.push(page.url() + ": " + message.text());
  });
  page.on("pageerror", (error) => complaints.push(page.url() + ": " + error));
  return page;
}

async function logIn(page, name) {
  await page.goto(address + "/login");
  await page.fill("[name=name]", name);
  await page.fill("[name=password]", name + "'s secret");
  await page.click("main button.main");
  assert.equal(new URL(page.url()).pathname, "/", await page.textContent("main"));
}

// Taps what leads to another page.
const tapTo = (page, selector) => Promise.all([page.waitForNavigation(), page.tap(selector)]);

async function look(page, name, width) {
  const wide = await page.evaluate(() => document.documentElement.scrollWidth);
  if (wide > width) complaints.push(`${name}: ${wide} wide`);
  await page.evaluate(fs.readFileSync(require.resolve("axe-core/axe.min.js"), "utf8"));
  const found = await page.evaluate(() =>
    axe.run(document, { runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"] }));
  assert(found.passes.length > 5, name);
  for (const { id, nodes } of found.violations) complaints.push(`${name}: ${id}: ${nodes[0].html}: ${nodes[0].failureSummary}`);
}

// What a phone's camera would read in a QR code.
async function readPicture(page, selector) {
  const png = await page.locator(selector).screenshot();
  const blank = await page.context().newPage();  // which has no policy
  const [pixels, width, height] = await blank.evaluate(async (base64) => {
    const bytes = Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0));
    const picture = await createImageBitmap(new Blob([bytes]));
    const canvas = new OffscreenCanvas(picture.width, picture.height).getContext("2d");
    canvas.drawImage(picture, 0, 0);
    return [Array.from(canvas.getImageData(0, 0, picture.width, picture.height).data), picture.width, picture.height];
  }, png.toString("base64"));
  await blank.close();
  return require("jsqr")(Uint8ClampedArray.from(pixels), width, height)?.data;
}

// What a form sends to each address that takes one, so that it would change something.
const filled = { status: "off", "was-status": "on", value: "1", verb: "accept", name: "x", loginname: "x", "was-loginname": "y",
  address: "x@example.net", "was-address": "y", expected: "x", password: "long enough", terms: "daily", number: "1",
  id: "others", mail: "user1/from0/1", slot: "1-18", secret: "x", code: "1", smtpserver: "x", "was-smtpserver": "y", alert_to: "x@example.net",
  "was-alert_to": "y", old: "x", nickname: "x", "was-nickname": "y" };

// Asks as the console's own pages do: the status, and where it ended.
const ask = (page, method, path, form) => page.evaluate(async ([method, path, form]) => {
  const token = document.querySelector("[name=token]")?.value ?? "";
  const body = method === "POST" ? new URLSearchParams({ ...form, token }) : undefined;
  const answer = await fetch(path, { method, body });
  return { status: answer.status, at: new URL(answer.url).pathname };
}, [method, path, form]);

const tasks = {
  // Each route as nobody, as another user, as the user whose all of it is, as an administrator: the first two get nothing
  // and change nothing, whatever they send; the others get what is for them.
  async rights(browser) {
    const routes = JSON.parse(extra);
    const places = { user: "user1", profile: "from0", address: "forwardto0", id: "1", what: "check", key: "endofdata",
      file: "none", job: "0".repeat(64) };
    const fill = (pattern) => pattern.replace("/first", "/first?code=x").replace(/{(\w+)}/g, (_, place) => places[place]);
    const pages = {};
    for (const who of ["nobody", "goro", "hanako", "taro"]) {
      pages[who] = await open(browser, looks["wide-light-en"]);
      if (who === "nobody") await pages[who].goto(address + "/login");
      else await logIn(pages[who], who);
    }
    await pages.hanako.goto(address + profile);
    await Promise.all([pages.hanako.waitForURL("**/jobs/**"), pages.hanako.click(`form[action="${profile}/start/check"] button`)]);
    places.job = new URL(pages.hanako.url()).pathname.split("/")[2];
    await pages.hanako.goto(address + "/mails");
    places.message = (await pages.hanako.getAttribute("main a[href^='/mails/']", "href")).split("/")[2];
    const ends = new Map([["/logout", 1]]);  // the session goes with it
    const sorted = routes.filter(([, path]) => path !== "/static/{file}")
      .sort((one, other) => (ends.get(one[1]) ?? 0) - (ends.get(other[1]) ?? 0));
    for (const [method, pattern, audience] of sorted) {
      const path = fill(pattern), isOthers = /{(user|job|message)}|selected/.test(pattern);
      const may = { nobody: audience === "anybody", goro: audience === "anybody" || (audience === "user" && !isOthers),
        hanako: audience !== "administrator", taro: !pattern.startsWith("/jobs/") };
      for (const [who, page] of Object.entries(pages)) {
        if (method === "POST" && may[who]) continue;  // the other walks do
        const { status, at } = await ask(page, method, path, filled);
        const got = `${who}: ${method} ${path}: ${status} ${at}`;
        if (may[who]) assert.equal(status, 200, got);
        else if (who === "nobody") assert.equal(at, "/login", got);
        else assert(status === 403 || status === 404, got);
      }
    }
  },

  // Pages of a tree in another state, in both looks.
  async states(browser) {
    for (const [name, options] of Object.entries(looks)) {
      const page = await open(browser, options);
      await logIn(page, "taro");
      for (const path of extra.split(" ")) {
        assert.equal((await page.goto(address + path)).status(), 200, path);
        await look(page, `${path} ${name}`, options.viewport.width);
      }
      await page.context().close();
    }
  },

  // With the keyboard alone, and a focus that is seen: a user logs in, and switches an address off.
  async keyboard(browser) {
    const page = await open(browser, looks["wide-light-en"]);
    const tabTo = async (selector) => {
      for (let i = 0; i < 60; i++) {
        await page.keyboard.press("Tab");
        const [is, outline] = await page.evaluate((wanted) => {
          const here = document.activeElement;
          return [here.matches(wanted), getComputedStyle(here).outlineStyle + getComputedStyle(here).outlineWidth];
        }, selector);
        if (!is) continue;
        return assert.doesNotMatch(outline, /none|^\D*0px/, selector);
      }
      assert.fail(`no way by Tab to ${selector}`);
    };
    const enter = () => Promise.all([page.waitForNavigation(), page.keyboard.press("Enter")]);
    await page.goto(address + "/login");
    await tabTo("[name=name]");
    await page.keyboard.type("hanako");
    await tabTo("[name=password]");
    await page.keyboard.type("hanako's secret");
    await enter();
    await tabTo(".skip");
    await page.keyboard.press("Enter");
    await tabTo(`a[href="${profile}"]`);
    await enter();
    await tabTo(`form[action="${profile}/to/forwardto0/switch"] button`);
    await enter();
    assert.match(await page.textContent("p.message.good"), /switched off/);
  },


  // Each page in both looks: nothing to complain about, and a picture of it.
  async pages(browser) {
    fs.mkdirSync(extra, { recursive: true });
    for (const [name, options] of Object.entries(looks)) {
      const page = await open(browser, options);
      for (const [title, path] of Object.entries(pages)) {
        if (title === "overview") await logIn(page, "taro");
        const answer = await page.goto(address + path);
        assert.equal(answer.status(), title === "missing" ? 404 : 200, path);
        await page.screenshot({ path: `${extra}/${title}-${name}.png`, fullPage: true });
        await look(page, `${title} ${name}`, options.viewport.width);
      }
      await page.goto(address + "/account");
      await page.click("form[action='/account/code'] button");
      await page.waitForSelector("[name=secret]", { state: "attached" });
      await page.screenshot({ path: `${extra}/authenticator-${name}.png`, fullPage: true });
      const key = await page.inputValue("[name=secret]");
      assert.match(await readPicture(page, "svg.qr"), new RegExp(`^otpauth://totp/Tarvex:taro%40localhost\\?secret=${key}&`));
      await look(page, `authenticator ${name}`, options.viewport.width);
      await page.goto(address + profile);
      await page.click(`form[action="${profile}/start/check"] button`);
      await page.waitForURL("**/jobs/**");
      await page.waitForSelector("pre");
      await page.screenshot({ path: `${extra}/job-${name}.png`, fullPage: true });
      await look(page, `job ${name}`, options.viewport.width);
      await page.goto(address + profile + "/to/forwardto0");
      await page.selectOption("[name=textonly]", "128");
      await page.click("button[formaction$='/preview'][value='0']");
      await page.waitForSelector(".phone");
      await page.screenshot({ path: `${extra}/preview-${name}.png`, fullPage: true });
      await look(page, `preview ${name}`, options.viewport.width);
      await page.click("main a.button[href*='draft=']");
      assert.equal(await page.inputValue("[name=textonly]"), "128");
      await look(page, `draft ${name}`, options.viewport.width);
      await page.context().close();
    }
  },

  // On a phone, without script, in Japanese: a user lets the address get mail always, and some times, and has it run.
  async schedule(browser) {
    const page = await open(browser, { ...looks["phone-dark-ja"], javaScriptEnabled: false });
    await logIn(page, "hanako");
    await tapTo(page, `main a[href="${profile}"]`);
    await tapTo(page, `a.button[href="${profile}/to/forwardto0"]`);
    await tapTo(page, "button[value=office]");
    assert.match(await page.textContent("p.message.good"), /保存/);
    await page.tap("input[value='6-20']");
    await page.tap("input[value='1-18']");
    await tapTo(page, "form[action$='/week'] button.main");
    assert.match(await page.textContent("main"), /月 9:30-18:00、火-金 9:00-18:00、土 10:00-10:30/);
    await tapTo(page, "button[value=always]");
    await page.goto(address + profile);
    await tapTo(page, `form[action="${profile}/start/run"] button`);
    assert.match(page.url(), /\/jobs\//);
    await page.waitForSelector(".state.good", { timeout: 60000 });
    const answer = await page.goto(address + "/profiles/user0/from0");
    assert.equal(answer.status(), 404);  // another's
    assert.equal((await page.goto(address + "/users")).status(), 403);
  },

  // A user, a mailbox of that user with its servers checked, its run planned and made, a held message dropped.
  async administrator(browser) {
    const [pop, smtp] = extra.split(" ");
    const page = await open(browser, looks["wide-light-en"]);
    const press = (selector) => Promise.all([page.waitForNavigation(), page.click(selector)]);
    await logIn(page, "taro");
    await page.goto(address + "/users");
    await page.fill("[name=loginname]", "三郎");
    await page.fill("[name=password]", "short");
    await press("form[action='/users'] button");
    assert.equal(await page.inputValue("[name=loginname]"), "三郎");
    await page.fill("[name=password]", "long enough");
    await press("form[action='/users'] button");
    await press("a[href='/users/user3']");
    await press("a.button[href='/users/user3/profiles']");
    const settings = { address: "saburo@example.org", popserver: "127.0.0.1", popport: pop, popuser: "saburo",
      poppassword: "secret", smtpserver: "127.0.0.1", smtpport: "1" };
    for (const [key, value] of Object.entries(settings)) await page.fill(`[name=${key}]`, value);
    await press("button[formaction$='/check']");
    await page.waitForSelector(".state.warn");
    assert.match(await page.textContent("pre"), /log in .*OK[^]*FAILED/);
    await press("main a.button[href*='draft=']");
    assert.equal(await page.inputValue("[name=popuser]"), "saburo");
    await page.fill("[name=smtpport]", smtp);  // the password is kept
    await press("button[formaction$='/check']");
    await page.waitForSelector(".state.good");
    await press("main a.button[href*='draft=']");
    await press("main form button.main");
    await page.goto(address + "/profiles/user3/from0/add");
    await page.fill("[name=address]", "phone@example.net");
    await page.check("[name=mail][value=all]");
    await press("main form button.main");
    for (const what of ["check", "plan"]) {
      await page.goto(address + "/profiles/user3/from0");
      await press(`form[action$='/start/${what}'] button`);
      await page.waitForSelector(".state.good");
      assert.match(await page.textContent("pre"), what === "check" ? /log in .*OK/ : /1 message in the mailbox/);
    }
    await page.goto(address + "/profiles/user3/from0");
    await press("form[action='/profiles/user3/from0/switch'] button");
    assert.match(await page.textContent("p.message.good"), /switched on/);
    await press("form[action$='/start/run'] button");
    await page.waitForSelector(".state.good");
    await page.goto(address + "/held/user1/from0/1");
    await press("a.button[href$='/drop']");
    await press("button.danger");
    await page.waitForSelector("p.message.good");
    assert.equal(await page.locator("tbody tr").count(), 1);
  },

  // A page of another origin, of another site or of this one, sends the console's own forms in the browser of who is
  // logged in, even with the token of the session: nothing comes of it.
  async foreign(browser) {
    const page = await open(browser, looks["wide-light-en"]);
    await logIn(page, "taro");
    await page.goto(address + profile);
    const form = `form[action="${profile}/switch"]`;
    const fields = await page.$$eval(form + " [name]", (all) => all.map((one) => [one.name, one.value]));
    assert(fields.some(([name, value]) => name === "token" && value.length > 20));
    const inputs = fields.map(([name, value]) => `<input name="${name}" value="${value}">`).join("");
    const server = require("http").createServer((request, response) => {
      response.setHeader("Content-Type", "text/html");
      response.end(`<form method="post" action="${address}${profile}/switch">${inputs}<button>go</button></form>`);
    });
    await new Promise((ready) => server.listen(0, "127.0.0.1", ready));
    const tries = [];
    for (const host of ["127.0.0.1", "localhost"]) {
      await page.goto(`http://${host}:${server.address().port}/`);
      const [answer] = await Promise.all([
        page.waitForResponse((one) => one.request().method() === "POST"), page.click("button")]);
      tries.push(answer.status());
      await page.goto(`http://${host}:${server.address().port}/`);
      await page.evaluate(([url, body]) => fetch(url, { method: "POST", mode: "no-cors", credentials: "include",
        headers: { "Content-Type": "application/x-www-form-urlencoded" }, body }).catch(() => 0),
        [address + profile + "/switch", new URLSearchParams(fields).toString()]);
    }
    server.close();
    assert.deepEqual(tries, [403, 403]);
    complaints = complaints.filter((one) => !/ERR_BLOCKED|net::ERR|favicon/.test(one));  // what the browser itself bars
    await page.goto(address + profile);
    if (extra !== "own") return;
    await Promise.all([page.waitForNavigation(), page.click(form + " button")]);  // the same from the console's own page
    assert.match(await page.textContent("p.message.good"), /switched off/);
  },

  // With the keyboard alone: the one-time link makes an administrator.
  async first(browser) {
    const page = await open(browser, looks["wide-light-en"]);
    await page.goto(address + extra);
    await page.focus("[name=name]");
    await page.keyboard.type("jiro");
    await page.keyboard.press("Tab");
    await page.keyboard.type("short");
    await page.keyboard.press("Enter");
    await page.waitForSelector("p.message.bad");
    assert.equal(await page.inputValue("[name=name]"), "jiro");
    await page.fill("[name=password]", "long enough for it");
    await page.focus("[name=password]");
    await page.keyboard.press("Enter");
    await page.waitForSelector("p.message.good");
    await page.goto(address + "/users");
    assert.match(await page.textContent("main"), /jiro/);
  },

  // In a week the arrow keys move, the space bar marks, and a mouse marks what it is drawn over.
  async week(browser) {
    const page = await open(browser, looks["wide-light-en"]);
    await logIn(page, "hanako");
    await page.goto(`${address}${profile}/to/forwardto0`);
    const box = (value) => page.locator(`input[value='${value}']`);
    await box("1-0").focus();
    await page.keyboard.press("ArrowDown");
    await page.keyboard.press("ArrowRight");
    await page.keyboard.press("Space");
    assert(await box("2-1").isChecked());
    await box("3-4").scrollIntoViewIfNeeded();
    await box("3-4").hover();
    await page.mouse.down();
    await box("4-4").hover();
    await box("4-5").hover();
    await page.mouse.up();
    for (const drawn of ["3-4", "4-4", "4-5"]) assert(await box(drawn).isChecked(), drawn);
    await page.locator("form[action$='/week'] button.main").first().click();
    await page.waitForSelector("p.message.good");
    assert.match(await page.textContent("main"), /Tue 0:30-1:00; Wed 2:00-2:30; Thu 2:00-3:00/);
  },
};

(async () => {
  const browser = await chromium.launch({
    executablePath: "/usr/bin/chromium", args: ["--no-sandbox", "--disable-dev-shm-usage"], timeout: 60000 });
  await tasks[task](browser);
  await browser.close();
  assert.deepEqual(complaints, []);
})().catch((error) => {
  console.error(error, complaints);
  process.exit(1);
});
